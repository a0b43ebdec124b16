#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

// What must be known of a track at the next start and is not in its segments: the engine's record
// "track/<id>".
//
// The ring log's front is the largest of `ringFront`, the front that its last chunk names, and what
// the engine was told when it removed segments. In the held log these entries are live: those in
// `heldRuns`; in segment `heldTail`, those from `heldTailCount` on; in segments from `heldNext` on,
// all. Every other entry is dropped for good, also when its segment reappears after a crash.
struct TrackRecord {
    enum class Phase : std::uint8_t { Creating = 1, Ready = 2, Deleting = 3 };

    struct HeldRun {
        std::uint64_t segment = 0;
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
    };

    static constexpr std::uint8_t version = 1;

    Phase phase = Phase::Creating;
    std::uint64_t capacity = 0;
    std::uint32_t segmentSize = 0;
    std::uint64_t ringFront = 0;  // ordinal
    std::uint64_t heldNext = 1;   // number of a segment
    std::uint64_t heldTail = 0;
    std::uint32_t heldTailCount = 0;
    std::vector<HeldRun> heldRuns;

    std::string Encode() const;
    // Throws std::runtime_error for what it can't read.
    static TrackRecord Decode(std::string_view bytes);

    static constexpr const char* prefix = "track/";
    static std::string Key(std::int64_t track) { return prefix + std::to_string(track); }
};

}  // namespace Brantel::Tracks
