#include "ReadIndex.h"

#include <limits>
#include <string>

namespace Brantel::Tracks {

using Engine::ChunkEntry;
using Engine::EngineError;

std::vector<ChunkEntry> ReadIndex(Engine::IEngine& engine, const Engine::SegmentId& id) {
    std::vector<ChunkEntry> entries = engine.ReadEntries(id);
    for (const ChunkEntry& entry : entries) {
        CheckTimes(entry);
    }
    return entries;
}

void CheckTimes(const ChunkEntry& entry) {
    if (entry.timePoint < 0 || entry.duration < 0 ||
        entry.duration > std::numeric_limits<std::int64_t>::max() - entry.timePoint) {
        throw EngineError(EngineError::Kind::Damaged,
                          "an index names a chunk of " + std::to_string(entry.duration) +
                              " nanoseconds at " + std::to_string(entry.timePoint));
    }
}

void CheckRun(std::size_t begin, std::size_t end, std::size_t count) {
    if (begin >= end || end > count) {
        throw EngineError(EngineError::Kind::Damaged,
                          "an index of " + std::to_string(count) + " entries has none from " +
                              std::to_string(begin) + " to " + std::to_string(end));
    }
}

}  // namespace Brantel::Tracks
