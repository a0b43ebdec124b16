#include "Local/SegmentFormat.h"

#ifdef __x86_64__
// The same checksums, by the widest instructions that the processor has.
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

namespace Brantel::Engine {

static_assert(std::endian::native == std::endian::little, "the structures are stored as they lie");

namespace SegmentFormat {

namespace {

constexpr std::string_view headerMagic = "BRSEGHDR";
constexpr std::string_view footerMagic = "BRSEGFTR";

bool IsUsable(const Identity& identity, std::uint64_t fileSize) noexcept {
    return identity.segmentSize <= ChunkLayout::maxSegmentSize &&
           identity.segmentSize >= minSegmentSize && identity.segmentSize % pageSize == 0 &&
           identity.log <= static_cast<std::uint32_t>(LogKind::Held) &&
           identity.segmentSize == fileSize;
}

// What the first checksum of a header covers.
constexpr std::size_t headerBytes = offsetof(Header, ringFront) - sizeof(Header::checksum);

std::size_t FooterBytes(std::size_t entries) noexcept {
    return sizeof(Footer) + entries * sizeof(Entry) - sizeof(std::uint64_t);
}

}  // namespace

std::uint64_t Checksum(const void* bytes, std::size_t size, std::uint64_t seed) noexcept {
    return XXH3_64bits_withSeed(bytes, size, seed);
}

std::uint64_t Identity::GetStamp() const noexcept {
    Identity lasting = *this;
    lasting.epoch = 0;
    return Checksum(&lasting, sizeof lasting);
}

ChunkEntry ChunkHead::GetEntry() const noexcept {
    return {timePoint, duration, ordinal, front, offset, length, headLength};
}

void EncodeHeader(const Identity& identity, HeaderState state, bool mayFollowLoss,
                  std::uint64_t ringFront, char* page) noexcept {
    Header header;
    std::memcpy(header.magic, headerMagic.data(), headerMagic.size());
    header.version = version;
    header.state = state;
    header.identity = identity;
    header.mayFollowLoss = mayFollowLoss ? 1 : 0;
    header.checksum = Checksum(header.magic, headerBytes);
    header.ringFront = ringFront;
    header.frontChecksum = Checksum(&header.ringFront, sizeof header.ringFront, header.checksum);
    std::memset(page, 0, pageSize);
    std::memcpy(page, &header, sizeof header);
}

void EncodeFooter(Footer footer, std::span<const Entry> entries, char* page) noexcept {
    std::memcpy(footer.magic, footerMagic.data(), footerMagic.size());
    footer.version = version;
    footer.inlineCount = static_cast<std::uint32_t>(entries.size());
    std::memset(page, 0, pageSize);
    std::memcpy(page, &footer, sizeof footer);
    if (!entries.empty()) {
        std::memcpy(page + sizeof footer, entries.data(), entries.size_bytes());
    }
    footer.checksum = Checksum(page + sizeof footer.checksum, FooterBytes(entries.size()));
    std::memcpy(page, &footer.checksum, sizeof footer.checksum);
}

std::optional<Header> DecodeHeader(const char* page, std::uint64_t fileSize) noexcept {
    Header header;
    std::memcpy(&header, page, sizeof header);
    const bool hasFront = header.ringFront != 0 || header.frontChecksum != 0;
    const bool whole =
        header.checksum == Checksum(page + sizeof header.checksum, headerBytes) &&
        (!hasFront || header.frontChecksum ==
                          Checksum(&header.ringFront, sizeof header.ringFront, header.checksum)) &&
        headerMagic == std::string_view(header.magic, sizeof header.magic) &&
        header.version == version && IsUsable(header.identity, fileSize);
    return whole ? std::optional(header) : std::nullopt;
}

std::optional<Footer> DecodeFooter(const char* page, std::uint64_t fileSize) noexcept {
    Footer footer;
    std::memcpy(&footer, page, sizeof footer);
    if (footerMagic != std::string_view(footer.magic, sizeof footer.magic) ||
        footer.inlineCount > maxInlineCount ||
        footer.checksum !=
            Checksum(page + sizeof footer.checksum, FooterBytes(footer.inlineCount)) ||
        footer.version != version || !IsUsable(footer.identity, fileSize)) {
        return std::nullopt;
    }
    const std::uint64_t room = ChunkLayout::Usable(fileSize);
    const bool fits =
        footer.end >= ChunkLayout::segmentHeaderSize && footer.count <= room / sizeof(Entry) &&
        footer.end - ChunkLayout::segmentHeaderSize + footer.count * sizeof(Entry) <= room &&
        (footer.inlineCount == footer.count || footer.inlineCount == 0);
    return fits ? std::optional(footer) : std::nullopt;
}

std::vector<ChunkEntry> DecodeInlineEntries(const char* page, const Footer& footer) {
    std::vector<ChunkEntry> entries(footer.inlineCount);
    const char* place = page + sizeof footer;
    for (ChunkEntry& entry : entries) {
        Entry packed;
        std::memcpy(&packed, place, sizeof packed);
        entry = Unpack(packed);
        place += sizeof packed;
    }
    return entries;
}

Entry Pack(const ChunkEntry& entry, bool estimated) noexcept {
    return {entry.timePoint, entry.duration, entry.ordinal,    entry.front,
            entry.offset,    entry.length,   entry.headLength, estimated ? 1U : 0U};
}

ChunkEntry Unpack(const Entry& entry) noexcept {
    return {entry.timePoint, entry.duration, entry.ordinal,   entry.front,
            entry.offset,    entry.length,   entry.headLength};
}

void EncodeChunk(const ChunkEntry& entry, std::span<const std::string_view> parts, Epoch epoch,
                 std::uint32_t flushedEnd, const Identity& identity, char* table) noexcept {
    ChunkHead head;
    head.magic = chunkMagic;
    head.partCount = static_cast<std::uint32_t>(parts.size());
    head.timePoint = entry.timePoint;
    head.duration = entry.duration;
    head.ordinal = entry.ordinal;
    head.front = entry.front;
    head.epoch = epoch;
    head.offset = entry.offset;
    head.length = entry.length;
    head.headLength = entry.headLength;
    head.flushedEnd = flushedEnd;
    head.segmentNumber = static_cast<std::uint32_t>(identity.number);
    std::memcpy(table, &head, sizeof head);
    char* place = table + sizeof head;
    for (const std::string_view bytes : parts) {
        const Part part{Checksum(bytes.data(), bytes.size()),
                        static_cast<std::uint32_t>(bytes.size()), 0};
        std::memcpy(place, &part, sizeof part);
        place += sizeof part;
    }
    head.checksum = Checksum(table + sizeof head.checksum,
                             static_cast<std::size_t>(place - table) - sizeof head.checksum,
                             identity.GetStamp());
    std::memcpy(table, &head.checksum, sizeof head.checksum);
}

std::optional<ChunkHead> DecodeChunk(const char* bytes, std::size_t available, std::uint32_t offset,
                                     const Identity& identity, std::uint64_t stamp,
                                     std::size_t& needed) noexcept {
    needed = sizeof(ChunkHead);
    if (available < needed) {
        return std::nullopt;
    }
    ChunkHead head;
    std::memcpy(&head, bytes, sizeof head);
    const std::uint64_t tableEnd = ChunkLayout::HeadLength(head.partCount, 0);
    if (head.magic != chunkMagic || head.offset != offset || head.partCount == 0 ||
        tableEnd > head.headLength || head.headLength > head.length ||
        head.length > identity.segmentSize - offset ||
        head.segmentNumber != static_cast<std::uint32_t>(identity.number)) {
        return std::nullopt;
    }
    needed = static_cast<std::size_t>(tableEnd);
    if (available < needed || head.checksum != Checksum(bytes + sizeof head.checksum,
                                                        needed - sizeof head.checksum, stamp)) {
        return std::nullopt;
    }
    std::uint64_t total = 0;
    for (std::uint32_t index = 0; index < head.partCount; ++index) {
        total += GetPart(bytes, index).size;
    }
    const bool agree =
        head.length == ChunkLayout::Length(head.partCount, total) &&
        head.headLength == ChunkLayout::HeadLength(head.partCount, GetPart(bytes, 0).size);
    return agree ? std::optional(head) : std::nullopt;
}

Part GetPart(const char* bytes, std::size_t index) noexcept {
    Part part;
    std::memcpy(&part, bytes + sizeof(ChunkHead) + index * sizeof part, sizeof part);
    return part;
}

}  // namespace SegmentFormat
}  // namespace Brantel::Engine
