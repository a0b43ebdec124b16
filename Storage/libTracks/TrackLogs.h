#pragma once

#include "LogWriter.h"
#include "TrackRecord.h"

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

// What only those need who change a track's logs. Guarded by the track's gate.
struct TrackLogs {
    // A held chunk that was copied to the end of the held log and has not left the ring yet: the
    // append that it was copied for failed, or is going on. It becomes part of the held log when
    // the ring's front passes it.
    struct Pending {
        std::uint64_t segment = 0;  // of the held log
        std::uint32_t index = 0;
        std::uint64_t durationBefore = 0;
        Engine::ChunkEntry entry;
    };

    explicit TrackLogs(const TrackContext& context)
        : ring(context, Engine::LogKind::Ring), held(context, Engine::LogKind::Held) {}

    // Makes it known for good (blocks) that the ring begins at `front` at least; of the record
    // nothing else is changed.
    void WriteFront(const TrackContext& context, std::uint64_t front);

    LogWriter ring;
    LogWriter held;
    std::vector<Pending> pending;    // in order of time
    bool canPack = true;             // packing the held log may gain something
    bool isHeldFlushed = true;       // everything in the held log's tail
    std::uint64_t frontOrdinal = 0;  // of the ring's first chunk, or of the next one
    std::uint64_t nextOrdinal = 0;   // of the ring's next chunk
    std::uint64_t nextHeldOrdinal = 0;
    TrackRecord record;  // as it was written last
};

}  // namespace Brantel::Tracks
