#include "Local/SegmentWriter.h"

#include "Local/File.h"

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

namespace Brantel::Engine {

namespace {

constexpr std::uint32_t pageSize = SegmentFormat::pageSize;
constexpr std::uint32_t pageCount = 3;
constexpr std::size_t bufferSize = std::size_t{pageCount} * pageSize;

constexpr std::uint32_t DownToPage(std::uint32_t offset) {
    return offset / pageSize * pageSize;
}
constexpr std::uint32_t UpToPage(std::uint32_t offset) {
    return DownToPage(offset + pageSize - 1);
}

// The last `size` bytes of what the parts hold together.
void CopyEnd(std::span<const iovec> parts, char* destination, std::size_t size) {
    for (std::size_t index = parts.size(); size > 0; --index) {
        const iovec& part = parts[index - 1];
        const std::size_t taken = std::min(size, part.iov_len);
        size -= taken;
        std::memcpy(destination + size,
                    static_cast<const char*>(part.iov_base) + part.iov_len - taken, taken);
    }
}

iovec Borrow(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), bytes.size()};
}

}  // namespace

SegmentWriter::Pages SegmentWriter::AllocatePages(std::size_t count) {
    return Pages(static_cast<char*>(::operator new(count* pageSize, std::align_val_t(pageSize))));
}

SegmentWriter::SegmentWriter(std::shared_ptr<File> openFile,
                             const SegmentFormat::Identity& identity, std::uint32_t end,
                             std::uint64_t ringFront)
    : file(std::move(openFile)),
      identity(identity),
      ringFront(ringFront),
      end(end),
      touchedEnd(end),
      pages(AllocatePages(pageCount)) {
    LoadLastPage(end);
}

void SegmentWriter::LoadLastPage(std::uint32_t newEnd) {
    const std::uint32_t begin = DownToPage(newEnd);
    std::memset(pages.get(), 0, bufferSize);
    if (newEnd > begin) {
        file->Read(pages.get(), newEnd - begin, begin);
    }
}

void SegmentWriter::Write(const ChunkEntry& entry, std::span<const std::string_view> parts,
                          Epoch epoch, std::uint32_t flushedEnd) {
    const std::uint32_t begin = DownToPage(end);
    const std::size_t used = end - begin;
    touchedEnd = std::max(touchedEnd, end + entry.length);
    if (used + entry.length > bufferSize) {
        WriteGathered(entry, parts, epoch, flushedEnd);
        return;
    }
    char* place = pages.get() + used;
    SegmentFormat::EncodeChunk(entry, parts, epoch, flushedEnd, identity, place);
    place += ChunkLayout::HeadLength(parts.size(), 0);
    for (const std::string_view part : parts) {
        place = std::copy(part.begin(), part.end(), place);
    }
    const std::uint32_t newEnd = end + entry.length;
    const std::size_t size = UpToPage(newEnd) - begin;
    std::memset(place, 0, static_cast<std::size_t>(pages.get() + size - place));
    file->Write(pages.get(), size, begin);
    const std::uint32_t newBegin = DownToPage(newEnd);
    if (newBegin > begin) {
        std::memmove(pages.get(), pages.get() + (newBegin - begin), newEnd - newBegin);
    }
    end = newEnd;
}

void SegmentWriter::WriteGathered(const ChunkEntry& entry, std::span<const std::string_view> parts,
                                  Epoch epoch, std::uint32_t flushedEnd) {
    static constexpr std::array<char, pageSize> zeros{};
    const std::size_t tableSize = ChunkLayout::HeadLength(parts.size(), 0);
    const std::uint32_t begin = DownToPage(end);
    const std::uint32_t newEnd = end + entry.length;
    std::vector<char> table(tableSize);
    SegmentFormat::EncodeChunk(entry, parts, epoch, flushedEnd, identity, table.data());

    std::size_t total = tableSize;
    std::vector<iovec> vector;
    vector.reserve(parts.size() + 4);
    vector.push_back(Borrow({pages.get(), end - begin}));
    vector.push_back(Borrow({table.data(), table.size()}));
    for (const std::string_view part : parts) {
        vector.push_back(Borrow(part));
        total += part.size();
    }
    vector.push_back(Borrow({zeros.data(), entry.length - total}));
    const std::uint32_t lastSize = newEnd - DownToPage(newEnd);
    char* lastPage = pages.get() + pageSize;
    CopyEnd(vector, lastPage, lastSize);
    vector.push_back(Borrow({zeros.data(), UpToPage(newEnd) - newEnd}));
    file->Write(vector, begin);
    std::memcpy(pages.get(), lastPage, lastSize);
    end = newEnd;
}

bool SegmentWriter::CutOff(std::uint32_t newEnd) {
    if (newEnd >= touchedEnd) {
        return false;
    }
    LoadLastPage(newEnd);
    file->Write(pages.get(), pageSize, DownToPage(newEnd));
    constexpr std::uint32_t blockSize = 64 * pageSize;
    const Pages zeros = AllocatePages(blockSize / pageSize);
    std::memset(zeros.get(), 0, blockSize);
    const std::uint32_t touched = UpToPage(touchedEnd);
    for (std::uint32_t place = DownToPage(newEnd) + pageSize; place < touched; place += blockSize) {
        file->Write(zeros.get(), std::min(blockSize, touched - place), place);
    }
    end = newEnd;
    touchedEnd = newEnd;
    return true;
}

void SegmentWriter::WriteAgain(std::uint32_t begin, std::uint32_t newEnd) const {
    constexpr std::uint32_t blockSize = 64 * pageSize;
    const Pages block = AllocatePages(blockSize / pageSize);
    for (std::uint32_t place = DownToPage(begin); place < newEnd; place += blockSize) {
        const std::uint32_t size = std::min(blockSize, UpToPage(newEnd) - place);
        file->Read(block.get(), size, place);
        file->Write(block.get(), size, place);
    }
}

void SegmentWriter::WriteHeader(const SegmentFormat::Identity& newIdentity,
                                SegmentFormat::HeaderState state, bool mayFollowLoss) const {
    const Pages page = AllocatePages(1);
    SegmentFormat::EncodeHeader(newIdentity, state, mayFollowLoss, ringFront, page.get());
    file->Write(page.get(), pageSize, 0);
}

bool SegmentWriter::WriteIndex(std::span<const SegmentFormat::Entry> entries,
                               std::uint32_t chunksEnd, SegmentFormat::Footer& footer) const {
    footer.indexChecksum = 0;
    if (entries.size() <= SegmentFormat::maxInlineCount) {
        return false;
    }
    const std::uint32_t footerPlace = identity.segmentSize - ChunkLayout::segmentTrailerSize;
    const auto indexSize = static_cast<std::uint32_t>(entries.size_bytes());
    const std::uint32_t begin = DownToPage(footerPlace - indexSize);
    const std::uint32_t size = footerPlace - begin;
    const Pages block = AllocatePages(size / pageSize);
    std::memset(block.get(), 0, pageSize);
    if (chunksEnd > begin) {
        // The last chunk ends in the page in which the index begins.
        file->Read(block.get(), chunksEnd - begin, begin);
    }
    char* place = block.get() + size;
    for (const SegmentFormat::Entry& entry : entries) {
        place -= sizeof entry;
        std::memcpy(place, &entry, sizeof entry);
    }
    footer.indexChecksum = SegmentFormat::Checksum(place, indexSize);
    file->Write(block.get(), size, begin);
    return true;
}

void SegmentWriter::WriteFooter(const SegmentFormat::Footer& footer,
                                std::span<const SegmentFormat::Entry> entries) const {
    const Pages page = AllocatePages(1);
    const bool inPage = entries.size() <= SegmentFormat::maxInlineCount;
    SegmentFormat::EncodeFooter(footer, inPage ? entries : entries.first(0), page.get());
    file->Write(page.get(), pageSize, identity.segmentSize - ChunkLayout::segmentTrailerSize);
}

}  // namespace Brantel::Engine
