#include "Local/BlockReader.h"

#include "EngineError.h"
#include "Local/File.h"
#include "Local/SegmentFormat.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace Brantel::Engine {

namespace {

// More than so many bad pages in one segment: the medium is failing as a whole, and what is taken
// for the end of the segment then may be far from it.
constexpr std::size_t maxUnreadable = 128;

}  // namespace

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
        Fill(begin, count);
        blockOffset = begin;
        filled = count;
    }
    const auto place = static_cast<std::size_t>(offset - blockOffset);
    return {block.get() + place, filled - place};
}

void BlockReader::Fill(std::uint64_t begin, std::size_t count) {
    constexpr std::size_t pageSize = SegmentFormat::pageSize;
    try {
        file.ReadSome(block.get(), count, begin);
        return;
    } catch (const EngineError&) {
        // One bad page spoils the whole call: each is asked for alone.
    }
    std::size_t pages = 0;
    std::size_t failed = 0;
    for (std::size_t place = 0; place < count; place += pageSize, ++pages) {
        const std::size_t size = std::min(pageSize, count - place);
        try {
            file.ReadSome(block.get() + place, size, begin + place);
            unreadable.erase(begin + place);
        } catch (const EngineError&) {
            const bool last = place + size == count;
            if (unreadable.size() >= maxUnreadable || (last && pages > 0 && failed == pages)) {
                throw;
            }
            std::memset(block.get() + place, 0, size);
            unreadable.insert(begin + place);
            ++failed;
        }
    }
}

std::uint64_t BlockReader::FindUnreadable(std::uint64_t begin, std::uint64_t end) const {
    const auto behind = unreadable.lower_bound(end);
    if (behind == unreadable.begin()) {
        return 0;
    }
    const std::uint64_t pageEnd = *std::prev(behind) + SegmentFormat::pageSize;
    return pageEnd > begin ? pageEnd : 0;
}

}  // namespace Brantel::Engine
