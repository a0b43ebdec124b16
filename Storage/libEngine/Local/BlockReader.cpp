#include "Local/BlockReader.h"

#include "Local/File.h"
#include "Local/SegmentFormat.h"

#include <algorithm>

namespace Brantel::Engine {

std::string_view BlockReader::Get(std::uint64_t offset, std::size_t wanted) {
    if (offset >= size) {
        return {};
    }
    wanted = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, size - offset));
    if (offset < blockOffset || offset + wanted > blockOffset + filled) {
        const std::uint64_t begin = offset / SegmentFormat::pageSize * SegmentFormat::pageSize;
        const std::size_t needed = static_cast<std::size_t>(offset - begin) + wanted;
        if (capacity < needed) {
            const std::size_t room = std::max(needed, blockSize);
            // Not zeroed: filled by the read.
            block.reset(new char[room]);
            capacity = room;
        }
        filled = 0;
        const auto count = static_cast<std::size_t>(
            std::min<std::uint64_t>(std::max(needed, std::min(capacity, blockSize)), size - begin));
        file.ReadSome(block.get(), count, begin);
        blockOffset = begin;
        filled = count;
    }
    const auto place = static_cast<std::size_t>(offset - blockOffset);
    return {block.get() + place, filled - place};
}

}  // namespace Brantel::Engine
