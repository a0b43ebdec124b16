#pragma once

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Brantel::Tracks {

// The index of one segment in memory: its entries in order, with running sums of the durations.
// That of an open segment is guarded by the track's state; that of a sealed one never changes.
//
// Entries are kept as what differs from what the one before lets expect, a few bytes for chunks of
// a regular stream, in blocks that can be read each by itself. So a lookup is a search over the
// blocks, which begins where a regular stream has what is looked for, and a walk through one.
class EntryTable {
  public:
    // Walks forwards. Good until the table changes.
    class Cursor {
      public:
        // At `index`, which may be the table's size.
        Cursor(const EntryTable& table, std::size_t index);

        std::size_t GetIndex() const { return index; }
        // The entry here; not at the table's size.
        const Engine::ChunkEntry& GetEntry() const { return entry; }
        // The durations of the entries before this one, modulo 2^64.
        std::uint64_t GetDurationBefore() const { return durationBefore; }
        void Next();

      private:
        void Decode();

        const EntryTable& table;
        std::size_t index = 0;
        std::size_t place = 0;  // in the bytes, behind the entry
        std::uint64_t durationBefore = 0;
        Engine::ChunkEntry entry;
    };

    EntryTable() = default;
    explicit EntryTable(const std::vector<Engine::ChunkEntry>& entries);

    std::size_t GetSize() const { return size; }
    Engine::ChunkEntry GetEntry(std::size_t index) const { return Cursor(*this, index).GetEntry(); }
    // The durations of the entries before `index` (which may be the size), modulo 2^64.
    std::uint64_t GetDurationBefore(std::size_t index) const {
        return index == size ? durationSum : Cursor(*this, index).GetDurationBefore();
    }

    // The first index in [begin, end) whose time point is after `timePoint`; `end` when there is
    // none. The time points in [begin, end) increase.
    std::size_t FindAfter(std::size_t begin, std::size_t end, std::int64_t timePoint) const {
        return begin >= end ? end : SeekAfter(begin, end, timePoint).GetIndex();
    }
    // A cursor there; begin < end.
    Cursor SeekAfter(std::size_t begin, std::size_t end, std::int64_t timePoint) const;
    // The last entry in [begin, end) whose time point is not after `timePoint`, if one is.
    std::optional<Engine::ChunkEntry> FindUpTo(std::size_t begin, std::size_t end,
                                               std::int64_t timePoint) const;

    // Makes room, so that the next Add does not fail.
    void ReserveOne();
    void Add(const Engine::ChunkEntry& entry);

    // Memory taken, in bytes.
    std::size_t GetMemory() const {
        return sizeof *this + bytes.capacity() + blocks.capacity() * sizeof(Block);
    }

  private:
    static constexpr std::size_t blockSize = 32;  // entries

    struct Block {
        std::int64_t timePoint = 0;  // of its first entry
        std::uint64_t durationBefore = 0;
        std::size_t place = 0;  // in the bytes
    };

    std::size_t FindBlock(std::size_t begin, std::size_t end, std::int64_t timePoint) const;

    // All of a block together: a large table is not in the processor's caches, and a lookup should
    // wait for one line of it, not for several.
    std::vector<Block> blocks;
    std::vector<unsigned char> bytes;
    std::size_t size = 0;
    std::uint64_t durationSum = 0;
    Engine::ChunkEntry last;  // what the next one is compared with; that of a new block with {}
};

}  // namespace Brantel::Tracks
