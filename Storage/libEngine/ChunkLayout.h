#pragma once

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Brantel::Engine {

// How much room chunks take in a segment, the same for every engine, so that a track holds the same
// chunks whatever it is stored on.
//
//   segment:  | header 4096 | chunk | chunk | ... | free | index entries | trailer 4096 |
//   chunk:    | head 80 | part table, 16 for each part | first part | other parts | 0..7 padding |
//
// The bytes themselves are each engine's own matter; none needs more than this.
struct ChunkLayout {
    static constexpr std::uint32_t unit = 4096;  // sizes of segments and tracks are multiples of it
    static constexpr std::uint32_t segmentHeaderSize = 4096;
    static constexpr std::uint32_t segmentTrailerSize = 4096;
    static constexpr std::uint32_t headSize = 80;
    static constexpr std::uint32_t partSize = 16;
    static constexpr std::uint32_t indexEntrySize = 48;
    static constexpr std::uint32_t alignment = 8;
    static constexpr std::uint32_t maxSegmentSize = 256U << 20U;

    // Bytes in front of the second part: ChunkEntry::headLength.
    static constexpr std::uint64_t HeadLength(std::uint64_t parts, std::uint64_t firstPartBytes) {
        return headSize + parts * partSize + firstPartBytes;
    }
    // The whole chunk: ChunkEntry::length.
    static constexpr std::uint64_t Length(std::uint64_t parts, std::uint64_t allPartsBytes) {
        return (headSize + parts * partSize + allPartsBytes + alignment - 1) / alignment *
               alignment;
    }
    // What a chunk of this length takes of a segment, its index entry included.
    static constexpr std::uint64_t Cost(std::uint64_t length) { return length + indexEntrySize; }
    // What chunks can take of a segment of this size.
    static constexpr std::uint64_t Usable(std::uint64_t segmentSize) {
        return segmentSize - segmentHeaderSize - segmentTrailerSize;
    }

    // Gives an entry the lengths of a chunk of these parts; there is at least one, and they fit
    // into a segment.
    static void SetLengths(ChunkEntry& entry, std::span<const std::string_view> parts);
    // Whether an entry's lengths are those of a chunk of these parts; never of none.
    static bool HasLengths(const ChunkEntry& entry, std::span<const std::string_view> parts);
};

}  // namespace Brantel::Engine
