#include "TrackChanges.h"

#include "EncodedChunk.h"
#include "EntryTable.h"
#include "StorageOptions.h"
#include "TrackError.h"
#include "TrackGeometry.h"
#include "TrackLoader.h"

#include <libEngine/ChunkLayout.h>

#include <string>
#include <utility>

namespace Brantel::Tracks {

using Engine::ChunkLayout;

TrackChanges::TrackChanges(const TrackContext& context, TrackState& state)
    : context(context), state(state), logs(context), recycler(context, state, logs) {}

void TrackChanges::Start(const TrackRecord& record) {
    const std::lock_guard lock(gate);
    logs.record = record;
}

void TrackChanges::Load(const TrackRecord& record) {
    const std::lock_guard lock(gate);
    logs.record = record;
    TrackLoader(context, state, logs).Load();
    recycler.RemoveEmptied();
}

// The length of the chunk at the end of the ring.
std::uint64_t TrackChanges::LayOut(EncodedChunk& chunk) {
    const auto length = [&chunk] {
        return ChunkLayout::Length(chunk.GetParts().size(), chunk.GetBytes());
    };
    const std::uint64_t largest = TrackGeometry::LargestChunk(GetCapacity(), context.segmentSize);
    if (chunk.AlignTo(logs.ring.GetEnd()) && ChunkLayout::Cost(length()) > largest) {
        chunk.Unalign();
    }
    return length();
}

void TrackChanges::Append(EncodedChunk& chunk) {
    const std::lock_guard lock(gate);
    Engine::Durability durability;
    std::uint64_t length = LayOut(chunk);
    RecyclePlan plan = PlanAppend(chunk, ChunkLayout::Cost(length), durability);
    if (!logs.ring.Takes(length)) {
        recycler.MakeRingTail();
        length = LayOut(chunk);
        plan = PlanAppend(chunk, ChunkLayout::Cost(length), durability);
    }
    recycler.Carry(plan);

    Engine::ChunkEntry entry =
        logs.ring.Place(chunk.GetTimePoint(), chunk.GetDuration(), chunk.GetParts());
    entry.ordinal = logs.nextOrdinal;
    if (plan.front.count == 0) {
        entry.front = logs.frontOrdinal;
    } else {
        entry.front = plan.isAll ? logs.nextOrdinal : plan.firstOrdinal;
    }
    ReserveAppend();
    logs.ring.Append(entry, chunk.GetParts(), durability, chunk.GetOffered());
    const bool isSegmentEmptied = PublishAppend(plan, entry, chunk.GetPayloadBytes());
    context.engine.Notify(context.track, entry.timePoint);
    if (isSegmentEmptied) {
        recycler.TryRemoveEmptied();
    }
}

RecyclePlan TrackChanges::PlanAppend(const EncodedChunk& chunk, std::uint64_t cost,
                                     Engine::Durability& durability) {
    return state.Ask(context, [&](TableSet& tables) {
        state.CheckUsableLocked(context.track);
        CheckAppendLocked(chunk, cost);
        durability = state.settings.durability;
        const std::uint64_t used = state.index.GetBytes();
        if (used + cost <= state.capacity) {
            return RecyclePlan();
        }
        if (state.settings.retention == TrackSettings::Retention::Stop) {
            throw TrackError(context.track, "a chunk of " + std::to_string(cost) +
                                                " bytes does not fit, " + std::to_string(used) +
                                                " of " + std::to_string(state.capacity) +
                                                " bytes are in use and its retention is stop");
        }
        const std::uint64_t needed = used + cost - state.capacity;
        RecyclePlan plan = RecyclePlan::MakeRoom(state, needed, tables);
        if (plan.freed < needed && !tables.IsMissing()) {
            throw TrackError(context.track,
                             "a chunk of " + std::to_string(cost) + " bytes does not fit, " +
                                 std::to_string(used - plan.freed) + " of " +
                                 std::to_string(state.capacity) + " bytes are held by protections");
        }
        return plan;
    });
}

void TrackChanges::CheckAppendLocked(const EncodedChunk& chunk, std::uint64_t cost) const {
    const std::int64_t last = state.index.GetLast();
    if (chunk.GetTimePoint() <= last) {
        throw TrackError(context.track, "time point " + std::to_string(chunk.GetTimePoint()) +
                                            " is not after the last one, " + std::to_string(last));
    }
    const std::uint64_t largest = TrackGeometry::LargestChunk(state.capacity, context.segmentSize);
    if (cost > largest) {
        throw TrackError(context.track, "a chunk of " + std::to_string(cost) +
                                            " bytes is over the largest that the track takes, " +
                                            std::to_string(largest) + " bytes");
    }
}

void TrackChanges::ReserveAppend() {
    const std::lock_guard lock(state.mutex);
    recycler.ReserveLocked();
    state.index.ring.Reserve(1);
    state.index.ring.GetOpenTable()->ReserveOne();
}

bool TrackChanges::PublishAppend(const RecyclePlan& plan, const Engine::ChunkEntry& entry,
                                 std::uint64_t payload) {
    const std::lock_guard lock(state.mutex);
    recycler.MoveFrontLocked(plan);
    EntryTable& table = *state.index.ring.GetOpenTable();
    const std::size_t index = table.GetSize();
    const std::uint64_t durationBefore = table.GetDurationBefore(index);
    table.Add(entry);
    state.index.ring.Append(logs.ring.GetTail(), static_cast<std::uint32_t>(index), entry,
                            durationBefore);
    ++logs.nextOrdinal;
    ++state.appendedChunks;
    state.appendedBytes += payload;
    return logs.ring.GetSegments().front() != state.index.ring.GetRuns().front().segment;
}

void TrackChanges::Clear() {
    const std::lock_guard lock(gate);
    RecyclePlan plan = state.Ask(context, [this](TableSet& tables) {
        state.CheckUsableLocked(context.track);
        return RecyclePlan::FreeAll(state, tables);
    });
    recycler.Carry(plan);
    std::vector<Log::Run> heldRuns = recycler.RunsWithPending();
    TrackRecord record = logs.record;
    record.ringFront = logs.nextOrdinal;
    recycler.WriteRecord(std::move(record), heldRuns);
    {
        const std::lock_guard stateLock(state.mutex);
        state.index.ring.Clear();
        state.index.ring.Open(0, nullptr);
        state.index.held.Replace(std::move(heldRuns));
        logs.frontOrdinal = logs.nextOrdinal;
        logs.ring.AbandonTail();
    }
    recycler.TryRemoveEmptied();
}

void TrackChanges::Protect(std::int64_t id, const Protections::Stretch& stretch) {
    const std::lock_guard lock(gate);
    Protections changed;
    {
        const std::lock_guard stateLock(state.mutex);
        state.CheckUsableLocked(context.track);
        const std::int64_t beginning = state.index.GetBeginning();
        if (beginning >= 0 && Protections::EndOf(stretch.timePoint, stretch.duration) <=
                                  static_cast<std::uint64_t>(beginning)) {
            throw TrackError(context.track, "a protection of " + std::to_string(stretch.duration) +
                                                " nanoseconds at " +
                                                std::to_string(stretch.timePoint) +
                                                " ends at or before the beginning of the track, " +
                                                std::to_string(beginning));
        }
        changed = state.protections;
        if (changed.GetAll().size() >= context.options.protectionsLimit) {
            throw TrackError(context.track, "it has " + std::to_string(changed.GetAll().size()) +
                                                " protections, the limit is " +
                                                std::to_string(context.options.protectionsLimit));
        }
    }
    changed.Add(id, stretch);
    std::vector<Engine::RecordChange> changes{
        {Protections::Key(id), Protections::Encode(context.track, stretch), 0}};
    if (!logs.pending.empty()) {
        // Copies for an append that failed. A chunk in front of them may be held from now on, and
        // could not be copied in order of time any more.
        recycler.WriteRecord(logs.record, state.index.held.GetRuns(), std::move(changes));
    } else if (!context.engine.WriteRecords(changes)) {
        throw TrackError(context.track, "protection " + std::to_string(id) + " exists already");
    }
    const std::lock_guard stateLock(state.mutex);
    state.protections = std::move(changed);
}

bool TrackChanges::Unprotect(std::int64_t id) {
    const std::lock_guard lock(gate);
    Protections rest;
    Protections::Stretch ended;
    {
        const std::lock_guard stateLock(state.mutex);
        const auto found = state.protections.GetAll().find(id);
        if (found == state.protections.GetAll().end()) {
            return false;
        }
        state.CheckUsableLocked(context.track);
        ended = found->second;
        rest = state.protections;
    }
    rest.Remove(id);
    std::vector<Log::Run> heldRuns = HeldRunsWithout(ended, rest);
    recycler.WriteRecord(logs.record, heldRuns, {{Protections::Key(id), std::nullopt}});
    {
        const std::lock_guard stateLock(state.mutex);
        state.protections = std::move(rest);
        state.index.held.Replace(std::move(heldRuns));
        logs.canPack = true;
    }
    recycler.TryRemoveEmptied();
    return true;
}

std::vector<Log::Run> TrackChanges::HeldRunsWithout(const Protections::Stretch& ended,
                                                    const Protections& rest) {
    return state.Ask(context, [&](TableSet& tables) {
        // Built as a log of its own, which makes the runs.
        Log live(context.track, Engine::LogKind::Held);
        const auto begin = static_cast<std::uint64_t>(ended.timePoint);
        const std::uint64_t end = Protections::EndOf(ended.timePoint, ended.duration);
        for (const Log::Run& run : state.index.held.GetRuns()) {
            if (static_cast<std::uint64_t>(run.first) >= end || run.reach <= begin) {
                live.AppendRun(run);
                continue;
            }
            const EntryTable* table = state.index.held.GetTable(run, tables);
            if (table == nullptr) {
                break;
            }
            for (EntryTable::Cursor cursor(*table, run.begin); cursor.GetIndex() < run.end;
                 cursor.Next()) {
                const Engine::ChunkEntry& entry = cursor.GetEntry();
                if (rest.Holds(entry.timePoint, entry.duration)) {
                    live.Append(run.segment, static_cast<std::uint32_t>(cursor.GetIndex()), entry,
                                cursor.GetDurationBefore());
                }
            }
        }
        return live.GetRuns();
    });
}

void TrackChanges::BeginDeletion(std::vector<Engine::RecordChange> changes) {
    const std::lock_guard lock(gate);
    {
        const std::lock_guard stateLock(state.mutex);
        state.CheckUsableLocked(context.track);
        if (const std::size_t count = state.protections.GetAll().size(); count > 0) {
            throw TrackError(context.track, "it has " + std::to_string(count) +
                                                " protections and can't be deleted");
        }
        if (state.openWorkers > 0) {
            throw TrackError(context.track, "it has " + std::to_string(state.openWorkers) +
                                                " open workers and can't be deleted");
        }
        // From here on nobody opens a worker.
        state.phase = TrackRecord::Phase::Deleting;
    }
    try {
        TrackRecord record = logs.record;
        record.phase = TrackRecord::Phase::Deleting;
        recycler.WriteRecord(std::move(record), state.index.held.GetRuns(), std::move(changes));
    } catch (...) {
        const std::lock_guard stateLock(state.mutex);
        state.phase = TrackRecord::Phase::Ready;
        throw;
    }
}

void TrackChanges::BecomeReady(std::vector<Engine::RecordChange> changes) {
    const std::lock_guard lock(gate);
    TrackRecord record = logs.record;
    record.phase = TrackRecord::Phase::Ready;
    recycler.WriteRecord(std::move(record), {}, std::move(changes));
    const std::lock_guard stateLock(state.mutex);
    state.phase = TrackRecord::Phase::Ready;
}

std::uint64_t TrackChanges::GetCapacity() {
    const std::lock_guard stateLock(state.mutex);
    return state.capacity;
}

void TrackChanges::KeepFront() {
    const std::lock_guard lock(gate);
    logs.WriteFront(context, logs.frontOrdinal);
}

void TrackChanges::SetCapacity(std::uint64_t capacity, std::vector<Engine::RecordChange> changes) {
    const std::lock_guard lock(gate);
    TrackRecord record = logs.record;
    record.capacity = capacity;
    recycler.WriteRecord(std::move(record), state.index.held.GetRuns(), std::move(changes));
    const std::lock_guard stateLock(state.mutex);
    state.capacity = capacity;
}

}  // namespace Brantel::Tracks
