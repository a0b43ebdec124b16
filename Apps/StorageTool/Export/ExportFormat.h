#pragma once

#include <libProtocolX/StorageClientX.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A track, or a part of one, in a file. All numbers little-endian, offsets and sizes in bytes, all
// checksums XXH3 with 64 bits and seed 0:
//
//      export file                              record
//        0      header, H bytes                   0   8  checksum of [8, 24 + n)
//        H      records, back to back             8   4  "CREC"
//        I      index                            12   4  zero
//        S - 56 trailer; S: the file's size      16   8  n, at most 2^31 - 1
//                                                24   n  the chunk, as DataChunk::Write lays it out
//      header                                   index
//        0   8  "BRTRKEXP"                        0   8  checksum of [8, 24 + 16 m)
//        8   4  version, 1                        8   4  "INDX"
//       12   4  H, at most 64 MiB                12   4  zero
//       16   8  track                            16   8  m, number of records
//       24   8  capacity of the track            24      m times: 8 time point, 8 place of record
//       32   8  number of properties
//       40      each: 4 length of the key,      trailer
//               key, 4 length of the value,       0   8  "BRTRKEND"
//               value                             8   8  I
//      H - 8 8  checksum of [0, H - 8)           16   8  m
//                                                24   8  first time point, -1 without a record
//      The chunks' time points increase from     32   8  last time point, -1 without a record
//      record to record.                         40   8  checksum of [0, S - 56)
//                                                48   8  checksum of the trailer up to here
//
// A file without its trailer was not written to its end: its whole records are sound and can be
// continued behind.
namespace Brantel::Tool::ExportFormat {

constexpr std::uint32_t version = 1;
constexpr std::uint64_t largestHeader = std::uint64_t{64} << 20U;
constexpr std::uint64_t largestChunk = (std::uint64_t{1} << 31U) - 1;
constexpr std::size_t checksumSize = 8;
constexpr std::size_t headerStartSize = 40;
constexpr std::size_t partHeadSize = 24;  // of a record, and of the index
constexpr std::size_t entrySize = 16;
constexpr std::size_t trailerSize = 56;
constexpr std::string_view recordMark("CREC", 4);
constexpr std::string_view indexMark("INDX", 4);

// What is said of the track.
struct Header {
    std::int64_t track = 0;
    std::int64_t capacity = 0;  // bytes
    ProtocolX::StorageClientX::Properties properties;
};

struct Entry {
    std::int64_t timePoint = 0;  // nanoseconds
    std::uint64_t place = 0;
};

// What stands before the bytes of a record or behind the head of an index.
struct PartHead {
    std::uint64_t checksum = 0;
    bool isRecord = false;
    bool isIndex = false;
    std::uint64_t count = 0;  // bytes of the chunk, or entries
};

struct Trailer {
    std::uint64_t indexPlace = 0;
    std::uint64_t count = 0;
    std::int64_t first = -1;
    std::int64_t last = -1;
    std::uint64_t checksum = 0;  // of everything before
};

std::uint64_t Checksum(std::string_view bytes);

// The bytes of the header. Throws std::runtime_error when it would be larger than it may be.
std::string EncodeHeader(const Header& header);
// The size that the first headerStartSize bytes tell. Throws std::runtime_error when they are not
// the start of an export file or of a version that this program knows.
std::size_t HeaderSize(std::string_view start);
// Of all bytes of a header. Throws std::runtime_error.
Header DecodeHeader(std::string_view bytes);

// The head of a record whose chunk is these bytes.
std::string EncodeRecordHead(std::string_view chunk);
std::string EncodeIndex(const std::vector<Entry>& entries);
// Of partHeadSize bytes; neither a record nor an index when the mark is not there.
PartHead DecodePartHead(std::string_view bytes);
// Of the bytes behind the head of an index.
std::vector<Entry> DecodeEntries(std::string_view bytes);

std::string EncodeTrailer(const Trailer& trailer);
// Of trailerSize bytes; false when they are no trailer.
bool DecodeTrailer(std::string_view bytes, Trailer& trailer);

}  // namespace Brantel::Tool::ExportFormat
