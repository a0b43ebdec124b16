#pragma once

#include "EntryBlock.h"

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

// The index of one segment in memory: its entries in order, with running sums of the durations.
// That of an open segment is guarded by the track's state; that of a sealed one never changes.
//
// All but the last few entries are packed in blocks, a byte or two each for chunks of a regular
// stream, and each can be read alone. A lookup is a search over the marks, one for each 1,024
// entries, which starts where a regular stream has what is looked for. A mark says how time and
// durations go on where they do so evenly, and nothing else is looked at then: the marks of ten
// million chunks take 320 kB and stay in the processor's second cache, all blocks would not.
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
        const EntryTable& table;
        std::size_t index = 0;
        std::uint64_t durationBefore = 0;
        Engine::ChunkEntry entry;
    };

    EntryTable() = default;
    explicit EntryTable(const std::vector<Engine::ChunkEntry>& entries);

    std::size_t GetSize() const { return packed + tail.size(); }
    Engine::ChunkEntry GetEntry(std::size_t index) const;
    std::int64_t GetTimePoint(std::size_t index) const;
    // The durations of the entries before `index` (which may be the size), modulo 2^64.
    std::uint64_t GetDurationBefore(std::size_t index) const;

    // The first index in [begin, end) whose time point is after `timePoint`; `end` when there is
    // none. The time points in [begin, end) increase.
    std::size_t FindAfter(std::size_t begin, std::size_t end, std::int64_t timePoint) const;
    // Has the processor fetch what such a search will most likely look at.
    void Prefetch(std::size_t begin, std::size_t end, std::int64_t timePoint) const noexcept;

    // Makes room, so that the next Add does not fail.
    void ReserveOne();
    void Add(const Engine::ChunkEntry& entry);
    // Takes less memory from now on, if there is memory to do it. More can be added.
    void Pack() noexcept;

    // Memory taken, in bytes.
    std::size_t GetMemory() const;

  private:
    static constexpr std::size_t blockSize = EntryBlock::capacity;

    static constexpr std::size_t groupSize = 16 * blockSize;  // entries

    struct Mark {
        std::int64_t time = 0;  // of the first entry of the group
        std::uint64_t durationBefore = 0;
        // From each entry of the group to the next one. timeStep 0: the blocks have to be asked.
        std::int64_t timeStep = 0;
        std::uint64_t durationStep = 0;
    };

    EntryBlockReader Read(std::size_t block) const {
        return {blocks[block], times[block], words.data()};
    }
    std::size_t Guess(std::size_t first, std::size_t last, std::int64_t timePoint) const noexcept;
    std::size_t FindGroup(std::size_t first, std::size_t last, std::int64_t timePoint) const;
    std::size_t FindInGroup(std::size_t group, std::size_t begin, std::size_t end,
                            std::int64_t timePoint) const;
    void AddMark(const EntryBlock& block);
    void ReserveBlock();
    void UnpackLast();
    void PackTail();

    std::vector<Mark> marks;
    // For each block the time point of its first entry, what it says, and all blocks' rows.
    std::vector<std::int64_t> times;
    std::vector<EntryBlock> blocks;
    std::vector<std::uint64_t> words;
    // Behind them. Empty when the last block is not full.
    std::vector<Engine::ChunkEntry> tail;
    std::size_t packed = 0;  // entries in blocks
    std::uint64_t packedDuration = 0;
    std::uint64_t durationSum = 0;
};

}  // namespace Brantel::Tracks
