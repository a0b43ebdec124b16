#pragma once

#include <libEngine/EngineTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Brantel::Tracks {

// Up to 64 neighbouring entries of a segment, packed so that each can be read without the others:
// the lines that their numbers follow, and how far each is from them, in as many bits as the
// farthest one of the block needs. In a regular stream that is none.
//
// What describes the lines takes one line of the processor's cache: who looks into one of many
// blocks waits for the memory once. The rows, one for each entry and one more, lie elsewhere. With
// i = 0 for the first entry, all modulo the size of their types:
//
//   sum i        durations before i in the block     i * durationStep + row
//   time point                                       first + sum i + i * timeStep + row
//   offset       also for the end of the last entry  offset + i * offsetStep + row * unit
//   length                                           offset i + 1 - offset i + row
//   head length                                      headLength + row
//   ordinal                                          ordinal + i + row
//   front                                            front + i (if it counts) + row
struct EntryBlock {
    static constexpr std::size_t capacity = 64;  // entries
    // Sums, time points, offsets, lengths, head lengths, ordinals, fronts.
    static constexpr std::size_t columns = 7;
    // Words that the rows of a block take at most.
    static constexpr std::size_t mostWords = (capacity + 1) * columns;

    alignas(64) std::uint64_t durationBefore = 0;  // of all entries before the block
    std::uint64_t durationStep = 0;
    std::uint64_t timeStep = 0;
    std::uint64_t ordinal = 0;
    std::uint64_t front = 0;
    std::uint32_t place = 0;  // of the rows, in words
    std::uint32_t offset = 0;
    std::uint32_t offsetStep = 0;
    std::uint32_t headLength = 0;
    std::array<std::uint8_t, columns> widths{};  // bits of each column
    std::uint8_t unitBits : 4 = 0;
    std::uint8_t frontStep : 4 = 0;

    // From each time point to the next one, where they and the sums lie on their lines and the time
    // points increase; else 0.
    std::int64_t GetTimeStep() const;

    // Packs 1 to 64 entries and puts their rows behind what is in `words`.
    static EntryBlock Pack(std::span<const Engine::ChunkEntry> entries,
                           std::uint64_t durationBefore, std::vector<std::uint64_t>& words);
};
static_assert(sizeof(EntryBlock) == 64);

// Reads a block. Borrows it, and its rows.
class EntryBlockReader {
  public:
    // `first`: the time point of its first entry; `words`: of its table.
    EntryBlockReader(const EntryBlock& block, std::int64_t first, const std::uint64_t* words)
        : block(block), first(first), rows(words + block.place) {}

    Engine::ChunkEntry GetEntry(std::size_t index) const;
    std::int64_t GetTimePoint(std::size_t index) const;
    // The durations of all entries before this one. The index may be the number of entries.
    std::uint64_t GetDurationBefore(std::size_t index) const;
    // The first index in [begin, end) whose time point is after `timePoint`, or `end`.
    std::size_t FindAfter(std::size_t begin, std::size_t end, std::int64_t timePoint) const;

  private:
    std::size_t GetRowBits() const;

    const EntryBlock& block;
    const std::int64_t first;
    const std::uint64_t* const rows;
};

}  // namespace Brantel::Tracks
