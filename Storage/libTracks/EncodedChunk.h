#pragma once

#include <CommonMessages.pb.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

// A chunk in the form in which it is stored: its parts. The first part is
//
//   offset  size
//   0       1     version, 1
//   1       4     number of properties
//   5             for each: 4 bytes length of the key, key, 4 bytes length of the value, value
//           4     number of data blocks
//                 for each: 4 bytes length of the key, key
//                 up to 63 bytes 0, see AlignTo
//
// and each further part is the value of one data block, in the order of their keys.
class EncodedChunk {
  public:
    static constexpr std::uint8_t version = 1;

    // Encodes a chunk, of which the parts then borrow the data blocks. The object can be used again
    // and keeps its memory. Throws std::runtime_error "Track 7: ..." for a chunk that can't be
    // appended to any track.
    void Encode(std::int64_t track, const Protocol::Chunk& chunk);

    // Offers the data blocks of the chunk that was encoded: the engine may take their values out of
    // it. Small ones are not worth it.
    void Offer(Protocol::Chunk& chunk);

    // For a chunk that is about to be written at this offset of a file: lengthens the first part
    // so that the first large data block lies to the lines of the processor's cache there as it
    // does in memory, which the system copies faster. False: it is as it was encoded.
    bool AlignTo(std::uint64_t offset);
    void Unalign();

    std::int64_t GetTimePoint() const { return timePoint; }
    std::int64_t GetDuration() const { return duration; }
    std::span<const std::string_view> GetParts() const { return parts; }
    // For each part the text that it is and that may be taken, else null; empty: none may.
    std::span<std::string* const> GetOffered() const { return offered; }
    // All parts together.
    std::uint64_t GetBytes() const { return bytes; }
    // The values of the properties and data blocks alone.
    std::uint64_t GetPayloadBytes() const { return payloadBytes; }

  private:
    std::int64_t timePoint = 0;
    std::int64_t duration = 0;
    std::uint64_t bytes = 0;
    std::uint64_t payloadBytes = 0;
    std::string first;
    std::size_t firstSize = 0;  // of it without what aligns
    std::vector<std::string_view> parts;
    std::vector<std::string*> offered;
};

}  // namespace Brantel::Tracks
