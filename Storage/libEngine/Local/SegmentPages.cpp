#include "Local/SegmentPages.h"

#include "ChunkLayout.h"
#include "Local/File.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

namespace Brantel::Engine {

SegmentPages ReadSegmentPages(const File& file, std::uint32_t segmentSize) {
    constexpr std::size_t pageSize = SegmentFormat::pageSize;
    // Not zeroed: filled by the reads.
    const std::unique_ptr<char[]> both(new char[2 * pageSize]);
    char* footerPage = both.get() + pageSize;
    SegmentPages pages;
    pages.fileSize = file.GetSize();
    file.ReadSome(both.get(), pageSize, 0);
    file.ReadSome(footerPage, pageSize, segmentSize - pageSize);
    pages.blank =
        std::all_of(both.get(), both.get() + 2 * pageSize, [](char byte) { return byte == 0; });
    pages.header = SegmentFormat::DecodeHeader(both.get(), segmentSize);
    pages.footer = SegmentFormat::DecodeFooter(footerPage, segmentSize);
    if (pages.footer) {
        pages.inlineEntries = SegmentFormat::DecodeInlineEntries(footerPage, *pages.footer);
    }
    return pages;
}

std::optional<std::vector<ChunkEntry>> ReadSegmentIndex(const File& file,
                                                        const SegmentPages& pages) {
    const SegmentFormat::Footer& footer = *pages.footer;
    if (footer.inlineCount == footer.count) {
        return pages.inlineEntries;
    }
    const std::size_t size = footer.count * sizeof(SegmentFormat::Entry);
    const std::unique_ptr<char[]> bytes(new char[size]);  // not zeroed: filled by the read
    file.ReadSome(bytes.get(), size,
                  footer.identity.segmentSize - ChunkLayout::segmentTrailerSize - size);
    if (SegmentFormat::Checksum(bytes.get(), size) != footer.indexChecksum) {
        return std::nullopt;
    }
    std::vector<ChunkEntry> entries(footer.count);
    const char* place = bytes.get() + size;
    for (ChunkEntry& entry : entries) {
        SegmentFormat::Entry packed;
        place -= sizeof packed;
        std::memcpy(&packed, place, sizeof packed);
        entry = SegmentFormat::Unpack(packed);
    }
    return entries;
}

}  // namespace Brantel::Engine
