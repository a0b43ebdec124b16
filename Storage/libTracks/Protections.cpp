#include "Protections.h"

#include "FieldReader.h"
#include "FieldWriter.h"
#include "TrackError.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace Brantel::Tracks {

namespace {

constexpr std::uint8_t version = 1;

// Empty: nothing is wrong.
std::string FaultOf(const Protections::Stretch& stretch) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    if (stretch.timePoint < 0) {
        return "begins below 0";
    }
    if (stretch.duration < 0) {
        return "has a duration below 0";
    }
    if (stretch.duration > largest - stretch.timePoint) {
        return "ends behind the largest time point, " + std::to_string(largest);
    }
    return {};
}

std::string TimesOf(const Protections::Stretch& stretch) {
    return "of " + std::to_string(stretch.duration) + " nanoseconds at " +
           std::to_string(stretch.timePoint);
}

}  // namespace

std::uint64_t Protections::EndOf(std::int64_t timePoint, std::int64_t duration) {
    return static_cast<std::uint64_t>(timePoint) +
           static_cast<std::uint64_t>(std::max<std::int64_t>(duration, 1));
}

std::vector<Protections::Interval> Protections::Merge(
    const std::map<std::int64_t, Stretch>& stretches) {
    std::vector<Interval> sorted;
    sorted.reserve(stretches.size());
    for (const auto& [id, stretch] : stretches) {
        sorted.push_back({static_cast<std::uint64_t>(stretch.timePoint),
                          EndOf(stretch.timePoint, stretch.duration)});
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const Interval& a, const Interval& b) { return a.begin < b.begin; });
    std::vector<Interval> result;
    for (const Interval& interval : sorted) {
        if (!result.empty() && interval.begin <= result.back().end) {
            result.back().end = std::max(result.back().end, interval.end);
        } else {
            result.push_back(interval);
        }
    }
    return result;
}

void Protections::Check(std::int64_t track, const Stretch& stretch) {
    if (const std::string fault = FaultOf(stretch); !fault.empty()) {
        throw TrackError(track, "a protection " + TimesOf(stretch) + " " + fault);
    }
}

std::string Protections::DescribeFault(std::int64_t id, const Stretch& stretch) {
    const std::string fault = FaultOf(stretch);
    return fault.empty()
               ? fault
               : "protection " + std::to_string(id) + ", " + TimesOf(stretch) + ", " + fault;
}

void Protections::Load(const std::map<std::int64_t, Stretch>& stored) {
    std::string firstFault;
    for (const auto& [id, stretch] : stored) {
        const std::string fault = DescribeFault(id, stretch);
        if (fault.empty()) {
            stretches.emplace(id, stretch);
        } else if (firstFault.empty()) {
            firstFault = fault;
        }
    }
    merged = Merge(stretches);
    if (!firstFault.empty()) {
        throw std::runtime_error(firstFault);
    }
}

void Protections::Add(std::int64_t id, const Stretch& stretch) {
    std::map<std::int64_t, Stretch> changed = stretches;
    changed.emplace(id, stretch);
    merged = Merge(changed);
    stretches.swap(changed);
}

void Protections::Remove(std::int64_t id) {
    std::map<std::int64_t, Stretch> changed = stretches;
    changed.erase(id);
    merged = Merge(changed);
    stretches.swap(changed);
}

bool Protections::Holds(std::int64_t timePoint, std::int64_t duration) const {
    const auto begin = static_cast<std::uint64_t>(timePoint);
    const auto candidate =
        std::partition_point(merged.begin(), merged.end(),
                             [begin](const Interval& interval) { return interval.end <= begin; });
    return candidate != merged.end() && candidate->begin < EndOf(timePoint, duration);
}

std::uint64_t Protections::GetCovered(std::uint64_t begin, std::uint64_t end) const {
    std::uint64_t covered = 0;
    for (auto interval = std::partition_point(
             merged.begin(), merged.end(),
             [begin](const Interval& candidate) { return candidate.end <= begin; });
         interval != merged.end() && interval->begin < end; ++interval) {
        covered += std::min(interval->end, end) - std::max(interval->begin, begin);
    }
    return covered;
}

std::string Protections::Encode(std::int64_t track, const Stretch& stretch) {
    std::string bytes;
    FieldWriter fields(bytes);
    fields.Put(version);
    fields.Put(track);
    fields.Put(stretch.timePoint);
    fields.Put(stretch.duration);
    return bytes;
}

Protections::Stretch Protections::Decode(std::string_view bytes, std::int64_t& track) {
    FieldReader fields(bytes);
    if (const auto found = fields.Get<std::uint8_t>(); found != version) {
        throw std::runtime_error("a protection of version " + std::to_string(found) +
                                 ", known is " + std::to_string(version));
    }
    track = fields.Get<std::int64_t>();
    Stretch stretch;
    stretch.timePoint = fields.Get<std::int64_t>();
    stretch.duration = fields.Get<std::int64_t>();
    return stretch;
}

}  // namespace Brantel::Tracks
