#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Brantel::Tracks {

// An operation on a track failed: "Track 7: " and what is wrong.
inline std::runtime_error TrackError(std::int64_t track, const std::string& what) {
    return std::runtime_error("Track " + std::to_string(track) + ": " + what);
}

}  // namespace Brantel::Tracks
