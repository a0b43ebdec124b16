#pragma once

#include "Local/EntryLog.h"
#include "Local/SegmentFormat.h"

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace Brantel::Engine {

class BlockReader;
class File;

// What a segment was found to hold.
struct SegmentContent {
    EntryLog entries;
    Epoch epoch = 0;  // newest of the chunks' writers
    std::uint64_t count = 0;
    std::uint32_t end = ChunkLayout::segmentHeaderSize;
    std::uint64_t durationSum = 0;
    std::uint32_t provenEnd = 0;  // what lies in front of it had been flushed once
    ChunkEntry first;
    ChunkEntry last;

    void Add(const ChunkEntry& entry, bool estimated);
};

// Finds the chunks of a segment by reading them, from the first that no index tells of.
//
// The segment ends in front of the first chunk that is not whole: an append was cut off there. Each
// chunk says up to where everything had been flushed when it was written, though; a chunk in front
// of such a mark was whole once, so it was damaged later. It then costs itself alone: it stays in
// the list (with the entry that its head tells, or one estimated from its neighbours when that is
// lost) and reading it fails.
class SegmentScanner {
  public:
    using Report = std::function<void(std::uint32_t offset, const std::string& text)>;

    // `footer`: the segment's, if it is known; what it tells of is known to have been whole.
    SegmentScanner(const File& file, const SegmentFormat::Identity& identity,
                   const std::optional<SegmentFormat::Footer>& footer, Report report);

    // Continues behind what `content` holds already. Throws EngineError (Io).
    void Scan(SegmentContent& content);

  private:
    using Head = SegmentFormat::ChunkHead;

    void ScanOn(SegmentContent& content);
    std::optional<ChunkEntry> TakeIfFits(const SegmentFormat::Entry& entry) const;
    bool Follows(const Head& head, const SegmentContent& content) const;
    // The first chunk from `offset` on, which at most lies in front of `end`, or of where it is
    // proven that there was more; takes over the marks of all that follow.
    std::optional<Head> FindNext(BlockReader& reader, std::uint32_t offset, std::uint32_t end,
                                 const SegmentContent& content);
    // Nothing was begun here: what is left of the page is zero, as the writer leaves it.
    bool IsUntouched(BlockReader& reader, std::uint32_t place) const;
    // Stands in for what was lost in front of `next`.
    static void FillHole(SegmentContent& content, const ChunkEntry& next);

    const File& file;
    const SegmentFormat::Identity identity;
    const std::uint64_t stamp;
    const Report report;
    const std::uint32_t limit;           // chunks end at most here
    std::optional<ChunkEntry> first;     // the first one that the footer tells of
    std::optional<ChunkEntry> expected;  // the last one
    std::uint32_t provenEnd;             // everything in front of it had been flushed once
};

}  // namespace Brantel::Engine
