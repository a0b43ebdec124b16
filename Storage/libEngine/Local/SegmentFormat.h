#pragma once

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace Brantel::Engine::SegmentFormat {

// The bytes of a segment file, format version 1. All numbers are little-endian, all checksums XXH3
// with 64 bits. Files are written in whole pages of 4096 bytes; what a page holds behind the last
// chunk is zero.
//
//   segment file                                     F = size of the file - 4096
//   0            header page
//   4096         chunks, back to back, each at a multiple of 8
//   F - 48 n     index of n chunks, last one first: entry i lies at F - 48 (i + 1), so that an
//                index of more chunks holds the bytes of one of fewer
//   F            footer page
//
//   header page                                      footer page
//     0   8  checksum of [8, 80)                       0   8  checksum of [8, 200 + 48 m)
//     8   8  "BRSEGHDR"                                8   8  "BRSEGFTR"
//    16   4  version, 1                               16   4  version, 1
//    20   4  state: 1 in use, 2 free                  20   4  state: 1 open, 2 sealed
//    24  48  identity                                 24  48  identity
//    72   8  1: may follow a loss, else 0             72   8  n, the chunks that are indexed
//    80   8  the ring begins here, or behind it       80   8  sum of their durations
//    88   8  checksum of that, seeded with the first  88   4  offset behind them
//   identity                                          92   4  m, entries in this page: n or 0
//     0   8  track                                    96   8  checksum of [F - 48 n, F); 0 if m = n
//     8   8  number                                  104  48  entry of the first of them
//    16   8  generation                              152  48  entry of the last of them
//    24   8  epoch that created it                   200      m entries, first one first
//    32   8  newest epoch that claimed it
//    40   4  log: 0 ring, 1 held                     entry
//    44   4  size of the file                          0   8  time point
//                                                      8   8  duration
//   chunk                                             16   8  ordinal
//     0   8  checksum of [8, 80 + 16 p), seeded       24   8  front
//            with the stamp                           32   4  offset
//     8   4  "CHNK"                                   36   4  length
//    12   4  p, number of parts                       40   4  head length
//    16   8  time point                               44   4  1: estimated, the chunk is lost
//    24   8  duration
//    32   8  ordinal                                 part
//    40   8  front                                     0   8  checksum of its bytes
//    48   8  epoch of the writer                       8   4  size
//    56   4  offset of the chunk                      12   4  zero
//    60   4  length
//    64   4  head length
//    68   4  offset up to which all was flushed when the chunk was written
//    72   4  number of the segment, lower half
//    76   4  zero
//    80      p parts, then their bytes back to back, then zeros up to a multiple of 8
//
// The generation counts the segments that a track ever created, so that the newer of two that claim
// one slot is known. The stamp is the checksum of the identity without the newest epoch: no chunk
// that an earlier lap left in the file is ever taken for one of this. A footer that is open holds
// for the chunks it indexes, which nothing changes; more may lie behind.
//
// A segment may follow a loss while what its log holds in front of it is not all flushed. The
// header says so before the first chunk is written, and that it is over once it is, before anything
// in the segment is called safe. So a gap in the log in front of a segment that may follow a loss
// is what a loss of power leaves, and any other gap is damage.
//
// A header lies in one sector, so a torn write of its page leaves the former one or the new one.
// One that can't be read is damage when a chunk of the segment says that something was flushed, and
// was never flushed itself otherwise.
//
// A slot is written over only when a header is flushed in it that tells of the segment's end, be it
// that of the next segment. The chunk that made the segment superfluous may still be lost; so that
// header, and each later one in the slot, also says where the ring begins by now (an ordinal): what
// is missing in front of that was recycled. Programs that left 0 at 80 and 88 waited for that chunk
// instead; their headers say nothing of it.

constexpr std::uint32_t version = 1;
constexpr std::uint32_t pageSize = ChunkLayout::unit;
// Header, one page for chunks, footer.
constexpr std::uint32_t minSegmentSize = 3 * pageSize;

enum class HeaderState : std::uint32_t { InUse = 1, Free = 2 };
enum class FooterState : std::uint32_t { Open = 1, Sealed = 2 };

struct Identity {
    std::int64_t track = 0;
    std::uint64_t number = 0;
    std::uint64_t generation = 0;
    std::uint64_t createEpoch = 0;
    std::uint64_t epoch = 0;
    std::uint32_t log = 0;
    std::uint32_t segmentSize = 0;

    SegmentId GetId() const noexcept { return {track, static_cast<LogKind>(log), number}; }
    std::uint64_t GetStamp() const noexcept;
};
static_assert(sizeof(Identity) == 48);

struct Header {
    std::uint64_t checksum = 0;
    char magic[8] = {};  // NOLINT(*-avoid-c-arrays): as it lies in the file
    std::uint32_t version = 0;
    HeaderState state = HeaderState::InUse;
    Identity identity;
    std::uint64_t mayFollowLoss = 0;
    std::uint64_t ringFront = 0;
    std::uint64_t frontChecksum = 0;
};
static_assert(sizeof(Header) == 96);

struct Entry {
    std::int64_t timePoint = 0;
    std::int64_t duration = 0;
    std::uint64_t ordinal = 0;
    std::uint64_t front = 0;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::uint32_t headLength = 0;
    std::uint32_t estimated = 0;
};
static_assert(sizeof(Entry) == ChunkLayout::indexEntrySize);

struct Footer {
    std::uint64_t checksum = 0;
    char magic[8] = {};  // NOLINT(*-avoid-c-arrays): as it lies in the file
    std::uint32_t version = 0;
    FooterState state = FooterState::Open;
    Identity identity;
    std::uint64_t count = 0;
    std::uint64_t durationSum = 0;
    std::uint32_t end = 0;
    std::uint32_t inlineCount = 0;
    std::uint64_t indexChecksum = 0;
    Entry first;
    Entry last;
};
static_assert(sizeof(Footer) == 200);
constexpr std::size_t maxInlineCount = (pageSize - sizeof(Footer)) / sizeof(Entry);

struct ChunkHead {
    std::uint64_t checksum = 0;
    std::uint32_t magic = 0;
    std::uint32_t partCount = 0;
    std::int64_t timePoint = 0;
    std::int64_t duration = 0;
    std::uint64_t ordinal = 0;
    std::uint64_t front = 0;
    std::uint64_t epoch = 0;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::uint32_t headLength = 0;
    std::uint32_t flushedEnd = 0;
    std::uint32_t segmentNumber = 0;
    std::uint32_t zero = 0;

    ChunkEntry GetEntry() const noexcept;
};
static_assert(sizeof(ChunkHead) == ChunkLayout::headSize);
constexpr std::uint32_t chunkMagic = 0x4b4e4843;  // "CHNK"

struct Part {
    std::uint64_t checksum = 0;
    std::uint32_t size = 0;
    std::uint32_t zero = 0;
};
static_assert(sizeof(Part) == ChunkLayout::partSize);

std::uint64_t Checksum(const void* bytes, std::size_t size, std::uint64_t seed = 0) noexcept;

// Fill a page of pageSize bytes.
void EncodeHeader(const Identity& identity, HeaderState state, bool mayFollowLoss,
                  std::uint64_t ringFront, char* page) noexcept;
// `entries`: those that lie in the page; the footer's count, sums and ends are the caller's.
void EncodeFooter(Footer footer, std::span<const Entry> entries, char* page) noexcept;

// Nothing when the page does not hold one that is whole and fits a file of this size.
std::optional<Header> DecodeHeader(const char* page, std::uint64_t fileSize) noexcept;
std::optional<Footer> DecodeFooter(const char* page, std::uint64_t fileSize) noexcept;
// The entries that lie in the footer's page.
std::vector<ChunkEntry> DecodeInlineEntries(const char* page, const Footer& footer);

Entry Pack(const ChunkEntry& entry, bool estimated = false) noexcept;
ChunkEntry Unpack(const Entry& entry) noexcept;

// The head and part table of a chunk: `table` has room for HeadLength(parts, 0) bytes.
void EncodeChunk(const ChunkEntry& entry, std::span<const std::string_view> parts, Epoch epoch,
                 std::uint32_t flushedEnd, const Identity& identity, char* table) noexcept;

// The head at this place of a segment, when it is one of this segment and all its lengths agree.
// `available` bytes lie at `bytes`; `needed` tells how many a head that can't be judged yet has.
std::optional<ChunkHead> DecodeChunk(const char* bytes, std::size_t available, std::uint32_t offset,
                                     const Identity& identity, std::uint64_t stamp,
                                     std::size_t& needed) noexcept;
// Part `index` of a chunk whose head was decoded from these bytes.
Part GetPart(const char* bytes, std::size_t index) noexcept;

}  // namespace Brantel::Engine::SegmentFormat
