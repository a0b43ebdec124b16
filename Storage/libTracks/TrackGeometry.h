#pragma once

#include <libEngine/EngineTypes.h>

#include <cstdint>

namespace Brantel::Tracks {

struct StorageOptions;

// How a track's capacity becomes segments. A value, made from the storage's options.
class TrackGeometry {
  public:
    explicit TrackGeometry(const StorageOptions& options);

    // The least a chunk takes: no properties, no data. A track holds at least one.
    static std::uint64_t SmallestChunk();
    // `bytes` rounded up to the unit of capacities.
    static std::uint64_t RoundUp(std::uint64_t bytes);
    // What the largest chunk of a track may take.
    static std::uint64_t LargestChunk(std::uint64_t capacity, std::uint32_t segmentSize);

    // The segment size of a track that is created with this capacity; it never changes.
    std::uint32_t SegmentSize(std::uint64_t capacity) const;
    // What to reserve for this capacity.
    Engine::Reservation Reserve(std::int64_t track, std::uint64_t capacity,
                                std::uint32_t segmentSize) const;

    // The largest capacity for which this is reserved.
    std::uint64_t CapacityOf(const Engine::Reservation& reservation) const;

    // The largest capacity of a new track that fits into this space, 0: none.
    std::uint64_t LargestCapacity(std::uint64_t available) const;

  private:
    std::uint32_t smallestSegment;
    std::uint64_t spareSegments;
};

}  // namespace Brantel::Tracks
