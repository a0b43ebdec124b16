#include "TrackGeometry.h"

#include "StorageOptions.h"

#include <libEngine/ChunkLayout.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Brantel::Tracks {

using Engine::ChunkLayout;

namespace {

constexpr std::uint64_t segmentsPerCapacity = 32;
constexpr std::uint64_t leastSpareSegments = 3;
constexpr std::uint64_t emptyFirstPart = 9;  // of the form that EncodedChunk draws

}  // namespace

TrackGeometry::TrackGeometry(const StorageOptions& options)
    : smallestSegment(options.smallestSegmentBytes), spareSegments(options.spareSegments) {
    const std::uint32_t least =
        ChunkLayout::segmentHeaderSize + ChunkLayout::segmentTrailerSize + ChunkLayout::unit;
    if (smallestSegment % ChunkLayout::unit != 0 || smallestSegment < least ||
        smallestSegment > ChunkLayout::maxSegmentSize) {
        throw std::runtime_error(
            "The smallest segment of " + std::to_string(smallestSegment) +
            " bytes is not a multiple of " + std::to_string(ChunkLayout::unit) + " from " +
            std::to_string(least) + " to " + std::to_string(ChunkLayout::maxSegmentSize));
    }
    if (spareSegments < leastSpareSegments) {
        throw std::runtime_error(std::to_string(spareSegments) +
                                 " spare segments are fewer than the least, " +
                                 std::to_string(leastSpareSegments));
    }
}

std::uint64_t TrackGeometry::SmallestChunk() {
    return ChunkLayout::Cost(ChunkLayout::Length(1, emptyFirstPart));
}

std::uint64_t TrackGeometry::RoundUp(std::uint64_t bytes) {
    return (bytes + ChunkLayout::unit - 1) / ChunkLayout::unit * ChunkLayout::unit;
}

std::uint64_t TrackGeometry::LargestChunk(std::uint64_t capacity, std::uint32_t segmentSize) {
    return std::min(capacity, ChunkLayout::Usable(segmentSize));
}

std::uint32_t TrackGeometry::SegmentSize(std::uint64_t capacity) const {
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(
        RoundUp(capacity / segmentsPerCapacity), smallestSegment, ChunkLayout::maxSegmentSize));
}

Engine::Reservation TrackGeometry::Reserve(std::int64_t track, std::uint64_t capacity,
                                           std::uint32_t segmentSize) const {
    const std::uint64_t usable = ChunkLayout::Usable(segmentSize);
    const std::uint64_t full = capacity / usable + (capacity % usable == 0 ? 0 : 1);
    return {track, segmentSize, full + spareSegments};
}

std::uint64_t TrackGeometry::CapacityOf(const Engine::Reservation& reservation) const {
    const std::uint64_t full =
        reservation.segmentCount - std::min(spareSegments, reservation.segmentCount - 1);
    return full * ChunkLayout::Usable(reservation.segmentSize);
}

std::uint64_t TrackGeometry::LargestCapacity(std::uint64_t available) const {
    // Segments grow with the capacity, so what is taken does not rise evenly; what is found here
    // fits, and differs from the very largest by less than one segment.
    std::uint64_t fits = 0;
    std::uint64_t tooMuch = available / ChunkLayout::unit + 1;
    while (tooMuch - fits > 1) {
        const std::uint64_t units = fits + (tooMuch - fits) / 2;
        const std::uint64_t capacity = units * ChunkLayout::unit;
        const Engine::Reservation all = Reserve(0, capacity, SegmentSize(capacity));
        (all.segmentCount <= available / all.segmentSize ? fits : tooMuch) = units;
    }
    return fits * ChunkLayout::unit;
}

}  // namespace Brantel::Tracks
