#include "Local/SegmentPages.h"

#include "ChunkLayout.h"
#include "EngineError.h"
#include "Local/File.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

namespace Brantel::Engine {

namespace {

// False, and zeros, when the medium does not give the page, asked twice.
bool TryRead(const File& file, char* page, std::uint64_t offset) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            file.ReadSome(page, SegmentFormat::pageSize, offset);
            return true;
        } catch (const EngineError&) {
            std::memset(page, 0, SegmentFormat::pageSize);
        }
    }
    return false;
}

}  // namespace

SegmentPages ReadSegmentPages(const File& file, std::uint32_t segmentSize) {
    constexpr std::size_t pageSize = SegmentFormat::pageSize;
    // Not zeroed: filled by the reads.
    const std::unique_ptr<char[]> both(new char[2 * pageSize]);  // NOLINT(*-avoid-c-arrays)
    char* footerPage = both.get() + pageSize;
    SegmentPages pages;
    pages.fileSize = file.GetSize();
    const bool headerRead = TryRead(file, both.get(), 0);
    bool footerRead = true;
    if (headerRead) {
        footerRead = TryRead(file, footerPage, segmentSize - pageSize);
    } else {
        file.ReadSome(footerPage, pageSize, segmentSize - pageSize);
    }
    pages.unreadable = !headerRead || !footerRead;
    pages.blank = !pages.unreadable && std::all_of(both.get(), both.get() + 2 * pageSize,
                                                   [](char byte) { return byte == 0; });
    pages.headerBlank = headerRead && std::all_of(both.get(), both.get() + pageSize,
                                                  [](char byte) { return byte == 0; });
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
    // NOLINTNEXTLINE(*-avoid-c-arrays): not zeroed, filled by the read
    const std::unique_ptr<char[]> bytes(new char[size]);
    try {
        file.ReadSome(bytes.get(), size,
                      footer.identity.segmentSize - ChunkLayout::segmentTrailerSize - size);
    } catch (const EngineError&) {
        return std::nullopt;  // the chunks themselves tell the same
    }
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
