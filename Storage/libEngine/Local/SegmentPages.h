#pragma once

#include "Local/SegmentFormat.h"

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace Brantel::Engine {

class File;

// What the first and the last page of a segment file tell, each if it is whole and of this size;
// one of them may be unreadable.
struct SegmentPages {
    std::optional<SegmentFormat::Header> header;
    std::optional<SegmentFormat::Footer> footer;
    std::vector<ChunkEntry> inlineEntries;  // those that lie in the footer's page
    std::uint64_t fileSize = 0;
    bool blank = true;        // both pages are zero: never used
    bool headerBlank = true;  // the first one is
    bool unreadable = false;  // the medium did not give one of the two
};
// Throws EngineError (Io) when neither can be read.
SegmentPages ReadSegmentPages(const File& file, std::uint32_t segmentSize);

// The entries that a footer tells of; nothing when they are not as they were written.
std::optional<std::vector<ChunkEntry>> ReadSegmentIndex(const File& file,
                                                        const SegmentPages& pages);

}  // namespace Brantel::Engine
