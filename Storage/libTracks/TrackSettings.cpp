#include "TrackSettings.h"

#include <charconv>
#include <stdexcept>

namespace Brantel::Tracks {

namespace {

constexpr std::string_view retentionKey = "storage.retention";
constexpr std::string_view durabilityKey = "storage.durability";
constexpr std::string_view intervalPrefix = "interval:";
constexpr std::string_view intervalUnit = "ms";

TrackSettings::Retention ParseRetention(std::string_view value) {
    if (value == "loop") {
        return TrackSettings::Retention::Loop;
    }
    if (value == "stop") {
        return TrackSettings::Retention::Stop;
    }
    throw std::runtime_error("property " + std::string(retentionKey) + " is " + std::string(value) +
                             ", neither loop nor stop");
}

}  // namespace

Engine::Durability TrackSettings::ParseDurability(std::string_view value) {
    using Mode = Engine::Durability::Mode;
    if (value == "always") {
        return {Mode::Always, {}};
    }
    if (value == "os") {
        return {Mode::Os, {}};
    }
    if (value.starts_with(intervalPrefix) && value.ends_with(intervalUnit) &&
        value.size() > intervalPrefix.size() + intervalUnit.size()) {
        const char* begin = value.data() + intervalPrefix.size();
        const char* end = value.data() + value.size() - intervalUnit.size();
        std::int64_t milliseconds = 0;
        const auto [rest, error] = std::from_chars(begin, end, milliseconds);
        if (error == std::errc() && rest == end && milliseconds >= 1 &&
            milliseconds <= longestIntervalMilliseconds) {
            return {Mode::Interval, std::chrono::milliseconds(milliseconds)};
        }
    }
    throw std::runtime_error("property " + std::string(durabilityKey) + " is " +
                             std::string(value) + ", neither always, os nor interval:1ms to " +
                             "interval:" + std::to_string(longestIntervalMilliseconds) + "ms");
}

std::string TrackSettings::DescribeDurability(const Engine::Durability& durability) {
    switch (durability.mode) {
        case Engine::Durability::Mode::Always: return "always";
        case Engine::Durability::Mode::Os: return "os";
        case Engine::Durability::Mode::Interval: break;
    }
    return std::string(intervalPrefix) + std::to_string(durability.interval.count()) +
           std::string(intervalUnit);
}

void TrackSettings::Set(std::string_view key, std::string_view value) {
    if (!key.starts_with(prefix)) {
        return;
    }
    if (key == retentionKey) {
        retention = ParseRetention(value);
    } else if (key == durabilityKey) {
        durability = ParseDurability(value);
    } else {
        throw std::runtime_error("property " + std::string(key) + " is no setting, known are " +
                                 std::string(durabilityKey) + " and " + std::string(retentionKey));
    }
}

}  // namespace Brantel::Tracks
