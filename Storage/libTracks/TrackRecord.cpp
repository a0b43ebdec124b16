#include "TrackRecord.h"

#include "FieldReader.h"
#include "FieldWriter.h"

#include <libEngine/ChunkLayout.h>

#include <stdexcept>

namespace Brantel::Tracks {

using Engine::ChunkLayout;

namespace {

constexpr std::uint32_t leastSegment =
    ChunkLayout::segmentHeaderSize + ChunkLayout::segmentTrailerSize + ChunkLayout::unit;

// What every other part relies on: that sizes can be divided by, and runs are not empty.
void Check(const TrackRecord& record) {
    if (record.phase < TrackRecord::Phase::Creating ||
        record.phase > TrackRecord::Phase::Deleting) {
        throw std::runtime_error("a track record with the unknown phase " +
                                 std::to_string(static_cast<int>(record.phase)));
    }
    if (record.segmentSize % ChunkLayout::unit != 0 || record.segmentSize < leastSegment ||
        record.segmentSize > ChunkLayout::maxSegmentSize) {
        throw std::runtime_error("a track record with segments of " +
                                 std::to_string(record.segmentSize) + " bytes");
    }
    for (const TrackRecord::HeldRun& run : record.heldRuns) {
        if (run.begin >= run.end) {
            throw std::runtime_error("a track record with held entries from " +
                                     std::to_string(run.begin) + " to " + std::to_string(run.end));
        }
    }
}

}  // namespace

std::string TrackRecord::Encode() const {
    std::string bytes;
    FieldWriter fields(bytes);
    fields.Put(version);
    fields.Put(static_cast<std::uint8_t>(phase));
    fields.Put(capacity);
    fields.Put(segmentSize);
    fields.Put(ringFront);
    fields.Put(heldNext);
    fields.Put(heldTail);
    fields.Put(heldTailCount);
    fields.Put(static_cast<std::uint32_t>(heldRuns.size()));
    for (const HeldRun& run : heldRuns) {
        fields.Put(run.segment);
        fields.Put(run.begin);
        fields.Put(run.end);
    }
    return bytes;
}

TrackRecord TrackRecord::Decode(std::string_view bytes) {
    FieldReader fields(bytes);
    if (const auto found = fields.Get<std::uint8_t>(); found != version) {
        throw std::runtime_error("a track record of version " + std::to_string(found) +
                                 ", known is " + std::to_string(version));
    }
    TrackRecord record;
    record.phase = static_cast<Phase>(fields.Get<std::uint8_t>());
    record.capacity = fields.Get<std::uint64_t>();
    record.segmentSize = fields.Get<std::uint32_t>();
    record.ringFront = fields.Get<std::uint64_t>();
    record.heldNext = fields.Get<std::uint64_t>();
    record.heldTail = fields.Get<std::uint64_t>();
    record.heldTailCount = fields.Get<std::uint32_t>();
    for (auto rest = fields.Get<std::uint32_t>(); rest > 0; --rest) {
        HeldRun run;
        run.segment = fields.Get<std::uint64_t>();
        run.begin = fields.Get<std::uint32_t>();
        run.end = fields.Get<std::uint32_t>();
        record.heldRuns.push_back(run);
    }
    if (!fields.IsAtEnd()) {
        throw std::runtime_error("a track record with bytes behind its end");
    }
    Check(record);
    return record;
}

}  // namespace Brantel::Tracks
