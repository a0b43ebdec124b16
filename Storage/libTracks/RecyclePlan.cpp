#include "RecyclePlan.h"

#include "EntryTable.h"
#include "TableSet.h"
#include "TrackState.h"

#include <libEngine/ChunkLayout.h>

namespace Brantel::Tracks {

namespace {

// Takes chunks until isEnough(plan, run) is true at one: that is the first that stays.
template <typename IsEnough>
RecyclePlan Take(const TrackState& state, TableSet& tables, IsEnough isEnough) {
    const Log& ring = state.index.ring;
    RecyclePlan plan;
    for (const Log::Run& run : ring.GetRuns()) {
        // A whole run in which nothing can be held is taken without a look at its chunks.
        const bool isWhole = state.protections.IsEmpty() && isEnough.TakesWhole(plan, run);
        if (isWhole) {
            plan.front.count += run.end - run.begin;
            plan.front.bytes += run.bytes;
            plan.front.duration += run.duration;
            plan.freed += run.bytes;
            continue;
        }
        const EntryTable* table = ring.GetTable(run, tables);
        if (table == nullptr) {
            return plan;
        }
        for (EntryTable::Cursor cursor(*table, run.begin); cursor.GetIndex() < run.end;
             cursor.Next()) {
            const Engine::ChunkEntry& entry = cursor.GetEntry();
            if (isEnough.At(plan, run)) {
                plan.front.firstLeft = entry.timePoint;
                plan.firstOrdinal = entry.ordinal;
                return plan;
            }
            const std::uint64_t cost = Engine::ChunkLayout::Cost(entry.length);
            if (state.protections.Holds(entry.timePoint, entry.duration)) {
                Log::Front before = plan.front;
                before.firstLeft = entry.timePoint;
                const Engine::SegmentId segment = ring.GetId(run);
                plan.carried.push_back({{segment, entry}, before, entry.ordinal});
            } else {
                plan.freed += cost;
            }
            ++plan.front.count;
            plan.front.bytes += cost;
            plan.front.duration += static_cast<std::uint64_t>(entry.duration);
        }
    }
    plan.isAll = true;
    return plan;
}

struct UntilBytes {
    std::uint64_t needed;
    bool At(const RecyclePlan& plan, const Log::Run&) const { return plan.freed >= needed; }
    bool TakesWhole(const RecyclePlan& plan, const Log::Run& run) const {
        return plan.freed + run.bytes < needed;
    }
};

struct UntilNextSegment {
    std::uint64_t segment;
    bool At(const RecyclePlan&, const Log::Run& run) const { return run.segment != segment; }
    bool TakesWhole(const RecyclePlan&, const Log::Run& run) const {
        return run.segment == segment;
    }
};

struct UntilEnd {
    bool At(const RecyclePlan&, const Log::Run&) const { return false; }
    bool TakesWhole(const RecyclePlan&, const Log::Run&) const { return true; }
};

}  // namespace

RecyclePlan RecyclePlan::MakeRoom(const TrackState& state, std::uint64_t needed, TableSet& tables) {
    return needed == 0 ? RecyclePlan() : Take(state, tables, UntilBytes{needed});
}

RecyclePlan RecyclePlan::FreeFrontSegment(const TrackState& state, TableSet& tables) {
    const auto& runs = state.index.ring.GetRuns();
    return runs.empty() ? RecyclePlan() : Take(state, tables, UntilNextSegment{runs[0].segment});
}

RecyclePlan RecyclePlan::FreeAll(const TrackState& state, TableSet& tables) {
    return Take(state, tables, UntilEnd{});
}

}  // namespace Brantel::Tracks
