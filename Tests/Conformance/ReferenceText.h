#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

// What the parts of ReferenceStorage share.
namespace Brantel::Tracks::Reference {

constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t page = 4096;

inline std::string Text(std::int64_t number) {
    return std::to_string(number);
}
inline std::string Text(std::uint64_t number) {
    return std::to_string(number);
}

inline std::string Named(std::int64_t track, const std::string& text) {
    return "Track " + Text(track) + ": " + text;
}

inline std::runtime_error Refusal(std::int64_t track, const std::string& text) {
    return std::runtime_error(Named(track, text));
}

// Behind the last time point that is covered; wide enough for every sum.
inline std::uint64_t Behind(std::int64_t time, std::int64_t duration) {
    return static_cast<std::uint64_t>(time) +
           static_cast<std::uint64_t>(std::max<std::int64_t>(1, duration));
}

inline std::uint64_t RoundUp(std::uint64_t number, std::uint64_t unit) {
    return (number + unit - 1) / unit * unit;
}

template <typename Map>
inline std::string KeysAsText(const Map& map) {
    std::string text;
    for (const auto& [key, value] : map) {
        text += ' ' + Text(key);
    }
    return text;
}

}  // namespace Brantel::Tracks::Reference
