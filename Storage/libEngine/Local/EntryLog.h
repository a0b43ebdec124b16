#pragma once

#include "Local/SegmentFormat.h"

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <vector>

namespace Brantel::Engine {

// The entries of an open segment, packed: each as its difference from what the one before lets
// expect, a few bytes for chunks of a regular stream. Not thread-safe.
class EntryLog {
  public:
    // Makes room, so that the next Add does not fail.
    void ReserveOne();
    // `estimated`: the chunk is lost, the entry a guess that stands in for it.
    void Add(const ChunkEntry& entry, bool estimated = false) noexcept;

    std::size_t GetCount() const { return count; }
    // The first `number` entries.
    std::vector<SegmentFormat::Entry> Get(std::size_t number) const;

    // Memory taken, in bytes.
    std::size_t GetMemory() const { return bytes.capacity(); }

  private:
    // For each entry a byte with one bit for each field that differs from what was expected, then
    // these differences, zigzag, in groups of 7 bits, the lowest first.
    std::vector<unsigned char> bytes;
    std::size_t count = 0;
    ChunkEntry last;
};

}  // namespace Brantel::Engine
