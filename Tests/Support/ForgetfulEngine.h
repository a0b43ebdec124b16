#pragma once

#include <libEngine/Memory/MemoryEngine.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brantel::Engine {

// Gives back other entries than were stored, as an index of which only a part could be restored.
class ForgetfulEngine : public MemoryEngine {
  public:
    using MemoryEngine::MemoryEngine;

    std::vector<ChunkEntry> ReadEntries(const SegmentId& id) override {
        std::vector<ChunkEntry> entries = MemoryEngine::ReadEntries(id);
        for (ChunkEntry& entry : entries) {
            entry.timePoint += late;
        }
        entries.resize(entries.size() - std::min(entries.size(), lost));
        return entries;
    }

    std::size_t lost = 0;
    std::int64_t late = 0;
};

}  // namespace Brantel::Engine
