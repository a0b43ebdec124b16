#pragma once

#include "Log.h"

#include <cstdint>
#include <optional>

namespace Brantel::Tracks {

// What a track holds: the held log, then the ring log. Every time in the first lies before every
// time in the second. Guarded by the track's state; for the TableSet see Log.
struct TrackIndex {
    explicit TrackIndex(Engine::TrackId track)
        : held(track, Engine::LogKind::Held), ring(track, Engine::LogKind::Ring) {}

    bool IsEmpty() const { return held.IsEmpty() && ring.IsEmpty(); }
    std::uint64_t GetBytes() const { return held.GetBytes() + ring.GetBytes(); }
    // Time points of the first and the last chunk, and the last one's end: -1 for an empty track.
    std::int64_t GetBeginning() const;
    std::int64_t GetLast() const;
    std::int64_t GetEnd() const;

    std::optional<FoundChunk> FindAfter(std::int64_t timePoint, TableSet& tables) const;
    std::optional<FoundChunk> FindUpTo(std::int64_t timePoint, TableSet& tables) const;
    // The last chunk before the time point.
    std::optional<FoundChunk> FindBefore(std::int64_t timePoint, TableSet& tables) const;
    // Only where they begin: the first after, and the last before, the time point.
    std::optional<std::int64_t> FindTimeAfter(std::int64_t timePoint, TableSet& tables) const;
    std::optional<std::int64_t> FindTimeBefore(std::int64_t timePoint, TableSet& tables) const;
    // The chunk that covers the time point: GetChunk's rule.
    std::optional<FoundChunk> FindCovering(std::int64_t timePoint, TableSet& tables) const;
    // The chunks with a time point in [in, out).
    ChunkSums Sum(std::int64_t in, std::int64_t out, TableSet& tables) const;

    Log held;
    Log ring;

  private:
    const Log& LogWithAfter(std::int64_t timePoint) const;
    const Log& LogWithUpTo(std::int64_t timePoint) const;
};

}  // namespace Brantel::Tracks
