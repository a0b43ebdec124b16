#include "TrackLoader.h"

#include "EntryTable.h"
#include "ReadIndex.h"
#include "RingEnd.h"
#include "StorageOptions.h"
#include "TrackError.h"

#include <libEngine/ChunkLayout.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Brantel::Tracks {

using Engine::ChunkLayout;
using Engine::LogKind;
using Engine::SegmentInfo;

void TrackLoader::Load() {
    Infos ring;
    Infos held;
    knownFront = std::max(logs.record.ringFront, context.engine.GetRingFront(context.track));
    for (const SegmentInfo& info : context.engine.ListSegments(context.track)) {
        // The owner is settled before anything is believed about an open segment's end.
        const SegmentInfo settled =
            info.sealed ? info : context.engine.Claim(info.id, context.epoch);
        if (settled.count > 0) {
            CheckTimes(settled.first);
            CheckTimes(settled.last);
        }
        (info.id.log == LogKind::Ring ? ring : held).push_back(settled);
    }
    LoadRing(std::move(ring));
    LoadHeld(held);
}

void TrackLoader::LoadRing(Infos infos) {
    CutRing(infos);
    EndRing(infos);
    logs.frontOrdinal = knownFront;
    logs.nextOrdinal = knownFront;
    for (const SegmentInfo& info : infos) {
        logs.ring.Adopt(info.id.number);
        if (info.count > 0) {
            logs.frontOrdinal = std::max(logs.frontOrdinal, info.last.front);
            logs.nextOrdinal = std::max(logs.nextOrdinal, info.last.ordinal + 1);
        }
    }
    for (std::size_t index = 0; index < infos.size(); ++index) {
        const SegmentInfo& info = infos[index];
        const bool isDead = info.count > 0 && info.last.ordinal < logs.frontOrdinal;
        if (isDead) {
            continue;
        }
        if (!info.sealed && index + 1 == infos.size()) {
            OpenTail(info, logs.ring, state.index.ring);
        } else if (!info.sealed) {
            SealOld(info);
        }
        AddToRing(info);
    }
}

// A chunk whose append failed may be found at the end of a segment that was then given up, although
// the next segment goes on with its ordinal: the later segment is right.
void TrackLoader::CutRing(Infos& infos) {
    std::uint64_t behind = std::numeric_limits<std::uint64_t>::max();
    // Range views, which the check wants here, are not for clang 14.
    // NOLINTNEXTLINE(modernize-loop-convert)
    for (auto info = infos.rbegin(); info != infos.rend(); ++info) {
        if (info->count == 0) {
            continue;
        }
        if (info->last.ordinal >= behind) {
            const auto entries = ReadIndex(context.engine, info->id);
            const auto cut = std::partition_point(
                entries.begin(), entries.end(),
                [behind](const Engine::ChunkEntry& entry) { return entry.ordinal < behind; });
            info->count = static_cast<std::uint64_t>(cut - entries.begin());
            info->durationSum = EntryTable({entries.begin(), cut}).GetDurationBefore(info->count);
            info->last = info->count > 0 ? *std::prev(cut) : Engine::ChunkEntry();
            info->end = cut == entries.end() ? info->end : cut->offset;
        }
        behind = info->count > 0 ? info->first.ordinal : behind;
    }
}

// Drops what lies behind a gap that a loss of power has left, last one first, for good: before its
// ordinals are given out again.
void TrackLoader::EndRing(Infos& infos) {
    const std::size_t end = FindRingEnd(infos, knownFront);
    KeepFront(infos, end);
    std::uint64_t dropped = 0;
    for (std::size_t index = infos.size(); index > end; --index) {
        SegmentInfo& info = infos[index - 1];
        dropped += info.count;
        context.engine.Seal(info.id, context.epoch, 0);
        info.sealed = true;
        info.count = 0;
    }
    if (dropped > 0) {
        context.options.log("Track " + std::to_string(context.track) + ": " +
                            std::to_string(dropped) +
                            " chunks are dropped, in front of which others were lost with the "
                            "power; none of them was promised to last");
    }
}

// What was recycled for the chunks that go is gone: without the last of them, which tells of it, it
// would read as missing.
void TrackLoader::KeepFront(const Infos& infos, std::size_t end) {
    std::uint64_t front = knownFront;
    for (std::size_t index = end; index < infos.size(); ++index) {
        front = infos[index].count > 0 ? std::max(front, infos[index].last.front) : front;
    }
    if (front > knownFront) {
        logs.WriteFront(context, front);
        knownFront = front;
    }
}

void TrackLoader::AddToRing(const SegmentInfo& info) {
    if (info.count == 0) {
        return;
    }
    std::uint32_t begin = 0;
    if (info.first.ordinal < logs.frontOrdinal) {
        const auto entries = ReadIndex(context.engine, info.id);
        begin = static_cast<std::uint32_t>(
            std::partition_point(entries.begin(), entries.end(),
                                 [this](const Engine::ChunkEntry& entry) {
                                     return entry.ordinal < logs.frontOrdinal;
                                 }) -
            entries.begin());
    }
    state.index.ring.AppendRun(MakeRun(info, begin, static_cast<std::uint32_t>(info.count)));
}

Log::Run TrackLoader::MakeRun(const SegmentInfo& info, std::uint32_t begin, std::uint32_t end) {
    Log::Run run;
    run.segment = info.id.number;
    run.begin = begin;
    run.end = end;
    if (begin == 0 && end == info.count) {
        run.first = info.first.timePoint;
        run.last = info.last.timePoint;
        run.lastDuration = info.last.duration;
        run.reach = std::numeric_limits<std::uint64_t>::max();
        run.bytes =
            info.end - ChunkLayout::segmentHeaderSize + info.count * ChunkLayout::indexEntrySize;
        run.duration = info.durationSum;
        return run;
    }
    Log part(info.id.track, info.id.log);
    const EntryTable table(ReadIndex(context.engine, info.id));
    CheckRun(begin, end, table.GetSize());
    for (EntryTable::Cursor cursor(table, begin); cursor.GetIndex() < end; cursor.Next()) {
        part.Append(info.id.number, static_cast<std::uint32_t>(cursor.GetIndex()),
                    cursor.GetEntry(), cursor.GetDurationBefore());
    }
    return part.GetRuns().front();
}

void TrackLoader::LoadHeld(const Infos& infos) {
    logs.held.SkipNumbersBelow(logs.record.heldNext);
    std::uint64_t tail = 0;
    std::vector<Log::Run> runs;
    for (const SegmentInfo& info : infos) {
        logs.held.Adopt(info.id.number);
        if (info.count > 0) {
            logs.nextHeldOrdinal = std::max(logs.nextHeldOrdinal, info.last.ordinal + 1);
        }
        const bool mayBeTail =
            info.id.number >= logs.record.heldNext || info.id.number == logs.record.heldTail;
        if (!info.sealed && mayBeTail) {
            tail = info.id.number;
        }
        AddHeld(info, runs);
    }
    for (const SegmentInfo& info : infos) {
        if (!info.sealed && info.id.number == tail) {
            OpenTail(info, logs.held, state.index.held);
        } else if (!info.sealed) {
            SealOld(info);
        }
    }
    JoinHeld(std::move(runs));
}

void TrackLoader::AddHeld(const SegmentInfo& info, std::vector<Log::Run>& runs) {
    const TrackRecord& record = logs.record;
    const auto count = static_cast<std::uint32_t>(info.count);
    std::vector<TrackRecord::HeldRun> live;
    for (const TrackRecord::HeldRun& run : record.heldRuns) {
        if (run.segment == info.id.number && run.begin < count) {
            live.push_back({run.segment, run.begin, std::min(run.end, count)});
        }
    }
    const bool isNew = info.id.number >= record.heldNext;
    const std::uint32_t since = isNew ? 0 : record.heldTailCount;
    if ((isNew || info.id.number == record.heldTail) && since < count) {
        if (!live.empty() && live.back().end == since) {
            live.back().end = count;
        } else {
            live.push_back({info.id.number, since, count});
        }
    }
    for (const TrackRecord::HeldRun& run : live) {
        runs.push_back(MakeRun(info, run.begin, run.end));
    }
}

void TrackLoader::JoinHeld(std::vector<Log::Run> runs) {
    std::sort(runs.begin(), runs.end(),
              [](const Log::Run& a, const Log::Run& b) { return a.first < b.first; });
    const std::int64_t ringBegin = state.index.ring.IsEmpty()
                                       ? std::numeric_limits<std::int64_t>::max()
                                       : state.index.ring.GetFirst();
    for (const Log::Run& run : runs) {
        const bool isInOrder = state.index.held.IsEmpty() || run.first > state.index.held.GetLast();
        if (isInOrder && run.last < ringBegin) {
            state.index.held.AppendRun(run);
            continue;
        }
        // Copied, but not yet taken over when the server ended.
        const EntryTable table(
            ReadIndex(context.engine, {context.track, LogKind::Held, run.segment}));
        CheckRun(run.begin, run.end, table.GetSize());
        for (EntryTable::Cursor cursor(table, run.begin); cursor.GetIndex() < run.end;
             cursor.Next()) {
            const Engine::ChunkEntry& entry = cursor.GetEntry();
            const auto index = static_cast<std::uint32_t>(cursor.GetIndex());
            const std::uint64_t before = cursor.GetDurationBefore();
            if (entry.timePoint >= ringBegin) {
                logs.pending.push_back({run.segment, index, before, entry});
            } else if (entry.timePoint >
                       (state.index.held.IsEmpty() ? -1 : state.index.held.GetLast())) {
                state.index.held.Append(run.segment, index, entry, before);
            }
        }
    }
}

void TrackLoader::OpenTail(const SegmentInfo& info, LogWriter& writer, Log& log) {
    writer.AdoptTail(info);
    log.Open(info.id.number, std::make_shared<EntryTable>(ReadIndex(context.engine, info.id)));
}

void TrackLoader::SealOld(const SegmentInfo& info) {
    try {
        context.engine.Seal(info.id, context.epoch, info.count);
    } catch (const Engine::EngineError& error) {
        context.options.log("a segment stays without its index: " + std::string(error.what()));
    }
}

}  // namespace Brantel::Tracks
