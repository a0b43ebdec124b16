#pragma once

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

// The index of one segment in memory: its entries in order, with running sums of the durations.
// That of an open segment is guarded by the track's state; that of a sealed one never changes.
class EntryTable {
  public:
    EntryTable() = default;
    explicit EntryTable(const std::vector<Engine::ChunkEntry>& entries);

    std::size_t GetSize() const { return items.size(); }
    const Engine::ChunkEntry& GetEntry(std::size_t index) const { return items[index].entry; }
    // The durations of the entries before `index` (which may be the size), modulo 2^64.
    std::uint64_t GetDurationBefore(std::size_t index) const {
        return index < items.size() ? items[index].durationBefore : durationSum;
    }

    // The first index in [begin, end) whose time point is after `timePoint`; `end` when there is
    // none. The time points in [begin, end) increase.
    std::size_t FindAfter(std::size_t begin, std::size_t end, std::int64_t timePoint) const;

    // Makes room, so that the next Add does not fail.
    void ReserveOne();
    void Add(const Engine::ChunkEntry& entry);

    // Memory taken, in bytes.
    std::size_t GetMemory() const { return sizeof *this + items.capacity() * sizeof(Item); }

  private:
    struct Item {
        Engine::ChunkEntry entry;
        std::uint64_t durationBefore = 0;
    };

    std::vector<Item> items;
    std::uint64_t durationSum = 0;
};

}  // namespace Brantel::Tracks
