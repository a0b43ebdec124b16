#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

using TrackId = std::int64_t;

// Who may write: counts up with each server that takes a store over. A newer epoch fences an older
// one out.
using Epoch = std::uint64_t;

// The two sorted logs of a track. An engine keeps them apart and knows nothing else of them.
enum class LogKind : std::uint8_t { Ring = 0, Held = 1 };

// Numbers count up within one log of a track; a number that was removed is not used again by the
// same epoch.
struct SegmentId {
    TrackId track = 0;
    LogKind log = LogKind::Ring;
    std::uint64_t number = 0;

    auto operator<=>(const SegmentId&) const = default;
};

// The index entry of one chunk in a segment. The caller fills it in; an engine stores it with the
// chunk and gives it back as it was. Offset and lengths follow ChunkLayout.
struct ChunkEntry {
    std::int64_t timePoint = 0;    // nanoseconds, >= 0
    std::int64_t duration = 0;     // nanoseconds, >= 0
    std::uint64_t ordinal = 0;     // counts the chunks of the log since its beginning
    std::uint64_t front = 0;       // ordinal of the oldest chunk of the log once this one is in
    std::uint32_t offset = 0;      // from the segment's begin
    std::uint32_t length = 0;      // head, part table, parts and padding
    std::uint32_t headLength = 0;  // head, part table and first part: what every read needs

    bool operator==(const ChunkEntry&) const = default;
};

struct SegmentInfo {
    SegmentId id;
    Epoch epoch = 0;      // the newest that claimed it
    bool sealed = false;  // its index is written; it never changes again
    // A loss of power may have taken chunks in front of it in its log: nothing in it was safe then.
    bool mayFollowLoss = false;
    std::uint64_t count = 0;        // chunks
    std::uint32_t end = 0;          // offset behind the last chunk: where the next one goes
    std::uint64_t durationSum = 0;  // of all chunks, modulo 2^64
    ChunkEntry first;               // as appended; unspecified when count is 0
    ChunkEntry last;
};

// What an answered append survives.
struct Durability {
    enum class Mode : std::uint8_t {
        Always,    // flushed before the answer
        Interval,  // flushed at most `interval` after the answer
        Os,        // flushed when the operating system likes; a crash of this process loses nothing
    };
    Mode mode = Mode::Always;
    std::chrono::milliseconds interval{0};  // used by Interval alone, > 0

    bool operator==(const Durability&) const = default;
};

// A small named value. `version` differs after each write of the key and is never 0.
struct Record {
    std::string key;
    std::string value;
    std::uint64_t version = 0;
};

// One change of a batch: a new value, or none to remove the key (a missing key is fine).
struct RecordChange {
    std::string key;
    std::optional<std::string> value;
    // The version the key must have, 0: it must not exist; not set: whatever it has.
    std::optional<std::uint64_t> expected = std::nullopt;
};

// The space of one track: segments of one size, all reserved before the first is used.
struct Reservation {
    TrackId track = 0;
    std::uint32_t segmentSize = 0;   // bytes, a multiple of ChunkLayout::unit, at most 256 MiB
    std::uint64_t segmentCount = 0;  // segments that can exist at the same time, both logs together

    std::uint64_t Bytes() const noexcept { return segmentSize * segmentCount; }
    bool operator==(const Reservation&) const = default;
};

// Bytes. `available` is what can still be reserved: the configured limit or the free space less a
// reserve, less what is promised already.
struct Space {
    std::uint64_t limit = 0;  // 0: only the medium limits
    std::uint64_t reserved = 0;
    std::uint64_t available = 0;
};

// One chunk, or the index of a segment, that is not as it was written.
struct Damage {
    SegmentId segment;
    std::uint32_t offset = 0;
    std::optional<ChunkEntry> chunk;  // not set: the index, or a place where no chunk can be read
    std::string text;                 // where (file and offset) and what
};

}  // namespace Brantel::Engine
