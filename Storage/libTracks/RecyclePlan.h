#pragma once

#include "Log.h"

#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

struct TrackState;

// Which chunks leave the ring log's front to make room: the unheld ones are dropped, the held ones
// among them move to the held log.
struct RecyclePlan {
    struct Carried {
        FoundChunk chunk;
        Log::Front before;  // what leaves the ring before this chunk
        std::uint64_t ordinal = 0;
    };

    Log::Front front;                // what leaves the ring, the carried ones included
    std::uint64_t firstOrdinal = 0;  // of the first chunk that stays; only when isAll is false
    bool isAll = false;              // nothing stays in the ring
    std::uint64_t freed = 0;         // bytes of the dropped ones
    std::vector<Carried> carried;

    // Takes chunks from the front until `needed` bytes are dropped or none are left. Under the
    // state's lock; for `tables` see Log.
    static RecyclePlan MakeRoom(const TrackState& state, std::uint64_t needed, TableSet& tables);
    // Takes all chunks of the front's segment, or of the whole ring.
    static RecyclePlan FreeFrontSegment(const TrackState& state, TableSet& tables);
    static RecyclePlan FreeAll(const TrackState& state, TableSet& tables);
};

}  // namespace Brantel::Tracks
