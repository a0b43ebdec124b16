#include "Recycler.h"

#include "EntryCache.h"
#include "EntryTable.h"
#include "HeldPacker.h"
#include "StorageOptions.h"
#include "StoredChunk.h"
#include "TrackError.h"
#include "TrackGeometry.h"

#include <libEngine/ChunkLayout.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <utility>

namespace Brantel::Tracks {

using Engine::EngineError;
using Engine::LogKind;

namespace {

// Before a ring's segment is taken: one is left for held chunks that have to be moved.
constexpr std::uint64_t leastFreeSegments = 2;

Log::Front Without(const Log::Front& front, const Log::Front& gone) {
    return {front.count - gone.count, front.bytes - gone.bytes, front.duration - gone.duration,
            front.firstLeft};
}

}  // namespace

std::uint64_t Recycler::CountFreeSegments() {
    std::uint64_t all = 0;
    {
        const std::lock_guard lock(state.mutex);
        all = context.geometry.Reserve(context.track, state.capacity, context.segmentSize)
                  .segmentCount;
    }
    const std::uint64_t used = logs.ring.GetSegments().size() + logs.held.GetSegments().size();
    return all - std::min(all, used);
}

bool Recycler::IsPending(std::int64_t timePoint) const {
    const auto found = std::partition_point(logs.pending.begin(), logs.pending.end(),
                                            [timePoint](const TrackLogs::Pending& pending) {
                                                return pending.entry.timePoint < timePoint;
                                            });
    return found != logs.pending.end() && found->entry.timePoint == timePoint;
}

void Recycler::Carry(RecyclePlan& plan) {
    if (plan.carried.empty()) {
        return;
    }
    for (std::size_t next = 0; next < plan.carried.size(); ++next) {
        const FoundChunk& chunk = plan.carried[next].chunk;
        if (IsPending(chunk.entry.timePoint)) {
            continue;
        }
        if (!logs.held.Takes(chunk.entry.length)) {
            MakeHeldTail(plan, next);
        }
        CopyToHeld(chunk);
    }
    FlushHeld();
}

void Recycler::CopyToHeld(const FoundChunk& chunk) {
    StoredChunk stored;
    try {
        context.engine.ReadChunk(chunk.segment, chunk.entry, stored);
    } catch (const EngineError& error) {
        if (error.GetKind() != EngineError::Kind::Damaged) {
            throw;
        }
        GiveUp(chunk, error);
        return;
    }
    const std::span<const std::string_view> parts = stored.GetParts();
    TrackLogs::Pending pending;
    pending.entry = logs.held.Place(chunk.entry.timePoint, chunk.entry.duration, parts);
    pending.entry.ordinal = logs.nextHeldOrdinal;
    pending.segment = logs.held.GetTail();
    pending.index = logs.held.GetTailCount();
    if (logs.pending.size() == logs.pending.capacity()) {
        logs.pending.reserve(2 * logs.pending.size() + 1);
    }
    {
        const std::lock_guard lock(state.mutex);
        EntryTable& table = *state.index.held.GetOpenTable();
        table.ReserveOne();
        pending.durationBefore = table.GetDurationBefore(table.GetSize());
    }
    logs.isHeldFlushed = false;
    logs.held.Append(pending.entry, parts, Engine::Durability{Engine::Durability::Mode::Os, {}});
    ++logs.nextHeldOrdinal;
    logs.pending.push_back(pending);
    const std::lock_guard lock(state.mutex);
    state.index.held.GetOpenTable()->Add(pending.entry);
}

void Recycler::GiveUp(const FoundChunk& chunk, const std::exception& error) {
    state.damaged.Note(chunk);
    context.options.log("Track " + std::to_string(context.track) + ": the protected chunk at " +
                        std::to_string(chunk.entry.timePoint) +
                        " is damaged and is lost to recycling: " + error.what());
}

void Recycler::FlushHeld() {
    if (logs.isHeldFlushed) {
        return;
    }
    try {
        logs.held.FlushTail();
        logs.isHeldFlushed = true;
    } catch (const EngineError&) {
        // What was not flushed may be lost, so it is copied again, to another segment.
        std::uint32_t kept = logs.held.GetTailCount();
        for (const TrackLogs::Pending& pending : logs.pending) {
            kept = pending.segment == logs.held.GetTail() ? std::min(kept, pending.index) : kept;
        }
        logs.held.BreakTail(kept);
        logs.pending.clear();
        logs.isHeldFlushed = true;
        throw;
    }
}

void Recycler::MakeHeldTail(RecyclePlan& plan, std::size_t next) {
    if (logs.held.HasTail()) {
        FlushHeld();
        logs.held.SealTail();
        const std::lock_guard lock(state.mutex);
        state.index.held.Close(context.cache, context.instance);
    }
    if (CountFreeSegments() == 0) {
        MoveFrontBefore(plan, next);
        WriteFront();
        RemoveEmptied();
    }
    if (CountFreeSegments() == 0) {
        throw TrackError(context.track, "no segment is free to move held chunks to");
    }
    const auto table = std::make_shared<EntryTable>();
    logs.held.CreateTail();
    const std::lock_guard lock(state.mutex);
    state.index.held.Open(logs.held.GetTail(), table);
}

void Recycler::MoveFrontBefore(RecyclePlan& plan, std::size_t next) {
    RecyclePlan part;
    part.front = plan.carried[next].before;
    part.firstOrdinal = plan.carried[next].ordinal;
    {
        const std::lock_guard lock(state.mutex);
        ReserveLocked();
        MoveFrontLocked(part);
    }
    plan.front = Without(plan.front, part.front);
    for (; next < plan.carried.size(); ++next) {
        plan.carried[next].before = Without(plan.carried[next].before, part.front);
    }
}

void Recycler::ReserveLocked() {
    state.index.held.Reserve(logs.pending.size());
}

void Recycler::MoveFrontLocked(const RecyclePlan& plan) {
    if (plan.front.count == 0) {
        return;
    }
    state.index.ring.DropFront(plan.front);
    logs.frontOrdinal = plan.isAll ? logs.nextOrdinal : plan.firstOrdinal;
    auto passed = logs.pending.begin();
    for (; passed != logs.pending.end() &&
           (plan.isAll || passed->entry.timePoint < plan.front.firstLeft);
         ++passed) {
        state.index.held.Append(passed->segment, passed->index, passed->entry,
                                passed->durationBefore);
    }
    state.recycledChunks +=
        plan.front.count - static_cast<std::uint64_t>(passed - logs.pending.begin());
    logs.pending.erase(logs.pending.begin(), passed);
}

void Recycler::MakeRingTail() {
    if (logs.ring.HasTail()) {
        logs.ring.SealTail();
        const std::lock_guard lock(state.mutex);
        state.index.ring.Close(context.cache, context.instance);
    }
    while (RemoveEmptied() && CountFreeSegments() < leastFreeSegments) {
        HeldPacker packer(context, state, logs, *this);
        const bool isNoneFree = CountFreeSegments() == 0;
        if (isNoneFree || !packer.Pack()) {
            FreeFrontSegment();
        }
        if (isNoneFree) {
            WriteFront();
        } else if (HasRoomForTail()) {
            break;  // what has been emptied is removed behind the append, which tells of the front
        }
    }
    if (!HasRoomForTail()) {
        throw TrackError(context.track, "no segment is free, some could not be removed");
    }
    const auto table = std::make_shared<EntryTable>();
    logs.ring.CreateTail();
    const std::lock_guard lock(state.mutex);
    state.index.ring.Open(logs.ring.GetTail(), table);
}

bool Recycler::HasRoomForTail() {
    const std::uint64_t free = CountFreeSegments();
    return free > 0 && free + ListEmptied(LogKind::Ring).size() >= leastFreeSegments;
}

// No chunk of the ring tells yet where it begins, and segments in front of that are to be removed:
// after a crash they would be missing.
void Recycler::WriteFront() {
    if (logs.pending.empty()) {
        TrackRecord record = logs.record;
        record.ringFront = logs.frontOrdinal;
        WriteRecord(std::move(record), state.index.held.GetRuns());
    }
}

// Whether moving the ring's held chunks over and dropping the others gives segments for both logs:
// known before anything is dropped, so that an append which fails for it has changed nothing.
bool Recycler::CanGainSegment(std::uint64_t free, TableSet& tables) const {
    std::uint64_t room = logs.held.GetRoom();
    const auto& runs = state.index.ring.GetRuns();
    for (std::size_t position = 0; position < runs.size(); ++position) {
        const Log::Run& run = runs[position];
        const EntryTable* table = state.index.ring.GetTable(run, tables);
        if (table == nullptr) {
            return false;
        }
        for (EntryTable::Cursor cursor(*table, run.begin); cursor.GetIndex() < run.end;
             cursor.Next()) {
            const Engine::ChunkEntry& entry = cursor.GetEntry();
            const std::uint64_t cost = Engine::ChunkLayout::Cost(entry.length);
            if (!state.protections.Holds(entry.timePoint, entry.duration) ||
                IsPending(entry.timePoint)) {
                continue;
            }
            if (room < cost) {
                if (free == 0) {
                    return false;
                }
                --free;
                room = Engine::ChunkLayout::Usable(context.segmentSize);
            }
            room -= cost;
        }
        const bool isEmptied =
            position + 1 == runs.size() || runs[position + 1].segment != run.segment;
        free += isEmptied ? 1 : 0;
        if (free >= leastFreeSegments) {
            return true;
        }
    }
    return false;
}

void Recycler::FreeFrontSegment() {
    const std::uint64_t free = CountFreeSegments();
    RecyclePlan plan = state.Ask(context, [this, free](TableSet& tables) {
        if (state.settings.retention == TrackSettings::Retention::Stop) {
            throw TrackError(context.track,
                             "all its segments are in use and its retention is stop");
        }
        if (!CanGainSegment(free, tables) && !tables.IsMissing()) {
            throw TrackError(context.track,
                             "all its segments hold protected chunks or wait to be removed");
        }
        return tables.IsMissing() ? RecyclePlan() : RecyclePlan::FreeFrontSegment(state, tables);
    });
    Carry(plan);
    const std::lock_guard lock(state.mutex);
    ReserveLocked();
    MoveFrontLocked(plan);
}

std::vector<std::uint64_t> Recycler::ListEmptied(LogKind kind) {
    const LogWriter& writer = kind == LogKind::Ring ? logs.ring : logs.held;
    std::vector<std::uint64_t> used{writer.GetTail()};
    if (kind == LogKind::Held) {
        for (const TrackLogs::Pending& pending : logs.pending) {
            used.push_back(pending.segment);
        }
    }
    {
        const std::lock_guard lock(state.mutex);
        const Log& log = kind == LogKind::Ring ? state.index.ring : state.index.held;
        for (const Log::Run& run : log.GetRuns()) {
            used.push_back(run.segment);
        }
    }
    std::sort(used.begin(), used.end());
    std::vector<std::uint64_t> emptied;
    for (const std::uint64_t segment : writer.GetSegments()) {
        if (!std::binary_search(used.begin(), used.end(), segment)) {
            emptied.push_back(segment);
        }
    }
    return emptied;
}

bool Recycler::RemoveEmptied() {
    bool isDone = true;
    for (const LogKind kind : {LogKind::Held, LogKind::Ring}) {
        LogWriter& writer = kind == LogKind::Ring ? logs.ring : logs.held;
        for (const std::uint64_t segment : ListEmptied(kind)) {
            context.cache.Remove(EntryCache::Key{context.instance, kind, segment});
            isDone = writer.Remove(segment, logs.frontOrdinal) && isDone;
        }
    }
    return isDone;
}

void Recycler::TryRemoveEmptied() noexcept {
    try {
        RemoveEmptied();
    } catch (const std::exception&) {
        // Short of memory: the segments stay listed, and the next change looks for them again.
        return;
    }
}

std::vector<Log::Run> Recycler::RunsWithPending() {
    Log held = [this] {
        const std::lock_guard lock(state.mutex);
        return state.index.held;
    }();
    for (const TrackLogs::Pending& pending : logs.pending) {
        held.Append(pending.segment, pending.index, pending.entry, pending.durationBefore);
    }
    return held.GetRuns();
}

void Recycler::WriteRecord(TrackRecord record, const std::vector<Log::Run>& heldRuns,
                           std::vector<Engine::RecordChange> changes) {
    record.heldNext = logs.held.GetNext();
    record.heldTail = logs.held.GetTail();
    record.heldTailCount = logs.held.GetTailCount();
    record.heldRuns.clear();
    for (const Log::Run& run : heldRuns) {
        record.heldRuns.push_back({run.segment, run.begin, run.end});
    }
    changes.push_back({TrackRecord::Key(context.track), record.Encode(), std::nullopt});
    if (!context.engine.WriteRecords(changes)) {
        throw TrackError(context.track, "its record was changed by somebody else");
    }
    logs.record = std::move(record);
    logs.pending.clear();
}

}  // namespace Brantel::Tracks
