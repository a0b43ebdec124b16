#pragma once

#include "Log.h"

#include <libEngine/EngineTypes.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <utility>

namespace Brantel::Tracks {

// The chunks of one track that were found damaged, each counted once. Thread-safe.
class DamagedChunks {
  public:
    // So many are told apart; what is found beyond them is not counted any more.
    static constexpr std::size_t limit = 10'000;

    // Whether it was not known.
    bool Note(const FoundChunk& chunk) {
        const std::lock_guard lock(mutex);
        if (seen.size() >= limit) {
            return false;
        }
        const bool isNew = seen.emplace(chunk.segment, chunk.entry.offset).second;
        count.store(seen.size(), std::memory_order_relaxed);
        return isNew;
    }
    std::uint64_t Count() const { return count.load(std::memory_order_relaxed); }

  private:
    std::mutex mutex;
    std::set<std::pair<Engine::SegmentId, std::uint32_t>> seen;  // guarded by mutex
    std::atomic<std::uint64_t> count = 0;
};

}  // namespace Brantel::Tracks
