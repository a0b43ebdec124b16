#pragma once

#include "Local/SegmentFormat.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Brantel::Engine {

class BlockReader;

// What lies at one place of a segment.
struct CheckedChunk {
    std::optional<SegmentFormat::ChunkHead> head;  // when it is one of this segment
    bool whole = false;                            // and all its parts are as they were written
    std::string fault;                             // what is wrong, otherwise
};

// Reads and checks the whole chunk at `offset`. Throws EngineError (Io) when it can't be read.
CheckedChunk CheckChunk(BlockReader& reader, std::uint32_t offset,
                        const SegmentFormat::Identity& identity, std::uint64_t stamp);

// The head at `offset` alone.
std::optional<SegmentFormat::ChunkHead> CheckHead(BlockReader& reader, std::uint32_t offset,
                                                  const SegmentFormat::Identity& identity,
                                                  std::uint64_t stamp);

}  // namespace Brantel::Engine
