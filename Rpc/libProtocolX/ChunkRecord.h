#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace Protocol {
class Chunk;
}

// The checked side of the chunk record (drawn in DataChunk.h): nothing is believed before it was
// compared with the bytes that are there.
namespace Brantel::ProtocolX::ChunkRecord {

constexpr std::uint64_t version = 1;
// The most that a message, and so a chunk on the wire, can hold; also what keeps a sparse file from
// filling the memory.
constexpr std::uint64_t sizeLimit = 2147483647;

// What came of reading or writing a record: its size, or 0 and why; 0 without a reason means that
// there is nothing, neither a record nor a fault.
struct Outcome {
    std::uint64_t size = 0;
    std::string reason;
};

// Both read into an empty `chunk`, which holds anything on failure, without the data blocks whose
// key isn't in `keys` (empty: all).

// Reads the record at the start of `size` bytes.
Outcome ReadBuffer(const unsigned char* buffer, std::uint64_t size,
                   const std::set<std::string>& keys, Protocol::Chunk& chunk);

// Reads the record at the position of a regular file. The position moves behind the record on
// success and not at all otherwise.
Outcome ReadFile(int fd, const std::set<std::string>& keys, Protocol::Chunk& chunk);

// Why a chunk can't be written as a record of `size` bytes into `capacity` bytes; empty when it
// can.
std::string WhyNotWritable(const Protocol::Chunk& chunk, std::uint64_t size,
                           std::uint64_t capacity);

}  // namespace Brantel::ProtocolX::ChunkRecord
