#pragma once

#include <BrantelStorageApiMessages.pb.h>

#include <cstddef>

namespace BrantelStorageApi {

// The memory, in bytes, that the part of one operation has in an envelope, beyond its fixed size.
struct PartMemory {
    // What its lists and their strings have allocated, in use or not: all of it outlasts Clear.
    std::size_t lists = 0;
    // The most that its unknown fields leave behind: it outlasts Clear too, but can't be seen then.
    std::size_t unknownFields = 0;
    // What stands beside the part: the text of an exception. It outlasts Clear as well.
    std::size_t text = 0;
    // Parts of other operations stand beside it, which no client of ours sends: what they have is
    // not counted.
    bool foreign = false;
};

// Counts by hand: SpaceUsedLong takes longer than serving a small call.
PartMemory MemoryOf(const Request& request);

// The same for what was answered to this operation. Unknown fields are looked for only in what a
// storage may have kept as a client sent it: chunks and properties.
PartMemory MemoryOf(const Response& response, Operation operation);

// The same of a chunk by itself.
PartMemory MemoryOf(const Protocol::Chunk& chunk);

}  // namespace BrantelStorageApi
