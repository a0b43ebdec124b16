#include "Local/CheckedChunk.h"

#include "Local/BlockReader.h"

#ifdef __x86_64__
// The same checksums, by the widest instructions that the processor has.
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

namespace {

using SegmentFormat::ChunkHead;
using SegmentFormat::Part;

// The checksum of bytes of which not all need to be in memory at once.
std::uint64_t ChecksumOf(BlockReader& reader, std::uint64_t offset, std::uint64_t size) {
    if (size <= BlockReader::blockSize / 2) {
        const std::string_view bytes = reader.Get(offset, static_cast<std::size_t>(size));
        return SegmentFormat::Checksum(bytes.data(), static_cast<std::size_t>(size));
    }
    const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(),
                                                                         &XXH3_freeState);
    if (!state) {
        throw std::bad_alloc();
    }
    XXH3_64bits_reset(state.get());
    while (size > 0) {
        const std::string_view bytes = reader.Get(offset, 1);
        const std::uint64_t taken = std::min<std::uint64_t>(bytes.size(), size);
        XXH3_64bits_update(state.get(), bytes.data(), static_cast<std::size_t>(taken));
        offset += taken;
        size -= taken;
    }
    return XXH3_64bits_digest(state.get());
}

}  // namespace

std::optional<ChunkHead> CheckHead(BlockReader& reader, std::uint32_t offset,
                                   const SegmentFormat::Identity& identity, std::uint64_t stamp) {
    std::size_t needed = sizeof(ChunkHead);
    while (true) {
        const std::string_view bytes = reader.Get(offset, needed);
        const std::size_t available = bytes.size();
        const std::optional<ChunkHead> head =
            SegmentFormat::DecodeChunk(bytes.data(), available, offset, identity, stamp, needed);
        if (head || needed <= available || needed > identity.segmentSize - offset) {
            return head;
        }
    }
}

CheckedChunk CheckChunk(BlockReader& reader, std::uint32_t offset,
                        const SegmentFormat::Identity& identity, std::uint64_t stamp) {
    CheckedChunk chunk;
    chunk.head = CheckHead(reader, offset, identity, stamp);
    if (!chunk.head) {
        chunk.fault = "no chunk of this segment can be read here";
        return chunk;
    }
    const std::size_t tableSize = ChunkLayout::HeadLength(chunk.head->partCount, 0);
    // A copy: reading the parts takes the bytes away.
    const std::string table(reader.Get(offset, tableSize).substr(0, tableSize));
    std::uint64_t place = offset + tableSize;
    for (std::uint32_t index = 0; index < chunk.head->partCount; ++index) {
        const Part part = SegmentFormat::GetPart(table.data(), index);
        if (ChecksumOf(reader, place, part.size) != part.checksum) {
            chunk.fault = "the checksum of part " + std::to_string(index) + ", " +
                          std::to_string(part.size) + " bytes, is wrong";
            return chunk;
        }
        place += part.size;
    }
    chunk.whole = true;
    return chunk;
}

}  // namespace Brantel::Engine
