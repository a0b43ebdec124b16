#pragma once

#include "Local/SegmentFormat.h"

#include <libEngine/IEngine.h>

#include <cstdint>

namespace Brantel::Engine {

class File;

// Reads one chunk of a segment: its head, part table and first part, then the parts that the sink
// wants, each verified, and no other bytes of a chunk that is not small. Throws EngineError:
// Damaged with file and offset, Refused when another chunk lies there, Io. Thread-safe.
void ReadChunkFrom(const File& file, const SegmentFormat::Identity& identity, std::uint64_t stamp,
                   const ChunkEntry& entry, IChunkSink& sink);

}  // namespace Brantel::Engine
