#include "Local/SegmentScanner.h"

#include "Local/BlockReader.h"
#include "Local/CheckedChunk.h"
#include "Local/File.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace Brantel::Engine {

namespace {

constexpr std::uint32_t minChunkLength = ChunkLayout::Length(1, 0);
// How far an end at which nothing was begun is searched for chunks behind it; any other is
// searched to the end of the segment.
constexpr std::uint32_t searchWindow = BlockReader::blockSize;

}  // namespace

void SegmentContent::Add(const ChunkEntry& entry, bool estimated) {
    entries.ReserveOne();
    entries.Add(entry, estimated);
    if (count == 0) {
        first = entry;
    }
    last = entry;
    ++count;
    end = entry.offset + entry.length;
    durationSum += static_cast<std::uint64_t>(entry.duration);
}

SegmentScanner::SegmentScanner(const File& file, const SegmentFormat::Identity& identity,
                               const std::optional<SegmentFormat::Footer>& footer, Report report)
    : file(file),
      identity(identity),
      stamp(identity.GetStamp()),
      report(std::move(report)),
      limit(footer && footer->state == SegmentFormat::FooterState::Sealed
                ? footer->end
                : identity.segmentSize - ChunkLayout::segmentTrailerSize),
      provenEnd(footer ? footer->end : 0) {
    if (footer && footer->count > 0) {
        first = TakeIfFits(footer->first);
        expected = TakeIfFits(footer->last);
    }
}

// An entry behind which nothing could be would lead the scan back to where it was.
std::optional<ChunkEntry> SegmentScanner::TakeIfFits(const SegmentFormat::Entry& entry) const {
    const bool fits = entry.offset >= ChunkLayout::segmentHeaderSize && entry.offset <= limit &&
                      entry.length >= minChunkLength && entry.length <= limit - entry.offset &&
                      entry.offset % ChunkLayout::alignment == 0;
    return fits ? std::optional(SegmentFormat::Unpack(entry)) : std::nullopt;
}

bool SegmentScanner::Follows(const Head& head, const SegmentContent& content) const {
    return head.epoch >= content.epoch && head.length <= limit - head.offset &&
           (content.count == 0 || head.ordinal > content.last.ordinal);
}

void SegmentScanner::Scan(SegmentContent& content) {
    ScanOn(content);
    content.provenEnd = provenEnd;
}

void SegmentScanner::ScanOn(SegmentContent& content) {
    BlockReader reader(file, limit);
    content.epoch = std::max(content.epoch, identity.createEpoch);
    while (content.end + minChunkLength <= limit) {
        const std::uint32_t place = content.end;
        const CheckedChunk chunk = CheckChunk(reader, place, identity, stamp);
        const bool follows = chunk.head && Follows(*chunk.head, content);
        if (follows && chunk.whole) {
            content.epoch = chunk.head->epoch;
            provenEnd = std::max(provenEnd, chunk.head->flushedEnd);
            content.Add(chunk.head->GetEntry(), false);
            continue;
        }
        const std::uint32_t behind = place + (follows ? chunk.head->length : minChunkLength);
        const std::uint32_t searched = IsUntouched(reader, place) ? behind + searchWindow : limit;
        const std::optional<Head> next = FindNext(reader, behind, searched, content);
        // A page that can't be read was no end when something lies behind it.
        if (next || follows) {
            provenEnd = std::max(provenEnd,
                                 static_cast<std::uint32_t>(reader.FindUnreadable(place, behind)));
        }
        if (provenEnd <= place) {
            return;
        }
        if (follows) {
            report(place, chunk.fault);
            content.epoch = chunk.head->epoch;
            content.Add(chunk.head->GetEntry(), false);
            continue;
        }
        report(place, "the head of a chunk, or of more than one, is damaged");
        if (content.count == 0 && first && first->offset == place) {
            content.Add(*first, false);
            continue;
        }
        if (next) {
            FillHole(content, next->GetEntry());
        } else if (expected && expected->offset >= place) {
            FillHole(content, *expected);
            content.Add(*expected, false);
        } else {
            return;
        }
    }
}

std::optional<SegmentScanner::Head> SegmentScanner::FindNext(BlockReader& reader,
                                                             std::uint32_t offset,
                                                             std::uint32_t end,
                                                             const SegmentContent& content) {
    std::optional<Head> found;
    while (offset + minChunkLength <= limit && (offset <= provenEnd || offset < end)) {
        const std::string_view bytes = reader.Get(offset, sizeof(Head));
        Head candidate;
        std::memcpy(&candidate, bytes.data(), sizeof candidate);
        std::optional<Head> head;
        if (candidate.magic == SegmentFormat::chunkMagic && candidate.offset == offset) {
            head = CheckHead(reader, offset, identity, stamp);
        }
        if (!head || !Follows(*head, content)) {
            offset += ChunkLayout::alignment;
            continue;
        }
        if (!found) {
            found = head;
        }
        provenEnd = std::max(provenEnd, head->flushedEnd);
        offset += head->length;
        end = std::max(end, offset + searchWindow);
    }
    return found;
}

bool SegmentScanner::IsUntouched(BlockReader& reader, std::uint32_t place) const {
    const std::uint32_t left = SegmentFormat::pageSize - place % SegmentFormat::pageSize;
    const std::string_view bytes = reader.Get(place, left).substr(0, left);
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; }) &&
           reader.FindUnreadable(place, place + left) == 0;
}

void SegmentScanner::FillHole(SegmentContent& content, const ChunkEntry& next) {
    if (next.offset == content.end) {
        return;
    }
    // Ordinals are contiguous. What lies in front of the segment's first chunk that can be read
    // counts as one chunk: how many it were can't be told.
    const std::uint64_t room = std::max(1U, (next.offset - content.end) / minChunkLength);
    std::uint64_t missing = 1;
    ChunkEntry guess = content.last;
    if (content.count == 0) {
        guess = ChunkEntry{};
        guess.ordinal = next.ordinal - 2;
        guess.front = next.front;
    } else {
        missing = std::clamp<std::uint64_t>(next.ordinal - guess.ordinal - 1, 1, room);
    }
    const std::int64_t from = guess.timePoint;
    const std::int64_t step =
        std::max<std::int64_t>(next.timePoint - from, 0) / static_cast<std::int64_t>(missing + 1);
    for (std::uint64_t index = 1; index <= missing; ++index) {
        guess.timePoint = from + std::max<std::int64_t>(step, 1) * static_cast<std::int64_t>(index);
        guess.duration = step;
        ++guess.ordinal;
        guess.offset = content.end;
        guess.length = index == missing ? next.offset - content.end : minChunkLength;
        guess.headLength = minChunkLength;
        content.Add(guess, true);
    }
}

}  // namespace Brantel::Engine
