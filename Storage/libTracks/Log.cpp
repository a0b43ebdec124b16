#include "Log.h"

#include "EntryCache.h"
#include "EntryTable.h"
#include "Protections.h"
#include "TableSet.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineError.h>

#include <algorithm>
#include <string>
#include <utility>

namespace Brantel::Tracks {

using Engine::ChunkLayout;

const EntryTable* Log::GetTable(const Run& run, TableSet& tables) const {
    const EntryTable* table =
        openTable && run.segment == openSegment ? openTable.get() : tables.Find(kind, run.segment);
    if (table != nullptr && table->GetSize() < run.end) {
        ThrowIndexDamaged(run);
    }
    return table;
}

void Log::ThrowIndexDamaged(const Run& run) const {
    throw Engine::EngineError(Engine::EngineError::Kind::Damaged,
                              "the index of segment " + std::to_string(run.segment) + " of the " +
                                  (kind == Engine::LogKind::Ring ? "ring" : "held") +
                                  " log is not what it was");
}

std::optional<Log::Place> Log::LocateAfter(std::int64_t timePoint, TableSet& tables) const {
    const auto run = std::partition_point(
        runs.begin(), runs.end(), [timePoint](const Run& r) { return r.last <= timePoint; });
    if (run == runs.end()) {
        return std::nullopt;
    }
    const EntryTable* table = GetTable(*run, tables);
    if (table == nullptr) {
        return std::nullopt;
    }
    const std::size_t index = table->FindAfter(run->begin, run->end, timePoint);
    if (index == run->end) {
        ThrowIndexDamaged(*run);
    }
    return Place{&*run, table, index};
}

std::optional<Log::Place> Log::LocateUpTo(std::int64_t timePoint, TableSet& tables) const {
    const auto behind = std::partition_point(
        runs.begin(), runs.end(), [timePoint](const Run& r) { return r.first <= timePoint; });
    if (behind == runs.begin()) {
        return std::nullopt;
    }
    const Run& run = *std::prev(behind);
    const EntryTable* table = GetTable(run, tables);
    if (table == nullptr) {
        return std::nullopt;
    }
    const std::size_t index = table->FindAfter(run.begin, run.end, timePoint);
    if (index == run.begin) {
        ThrowIndexDamaged(run);
    }
    return Place{&run, table, index - 1};
}

FoundChunk Log::Get(const Place& place) const {
    return {{track, kind, place.run->segment}, place.table->GetEntry(place.index)};
}

std::optional<FoundChunk> Log::FindAfter(std::int64_t timePoint, TableSet& tables) const {
    const auto place = LocateAfter(timePoint, tables);
    return place ? std::optional(Get(*place)) : std::nullopt;
}

std::optional<FoundChunk> Log::FindUpTo(std::int64_t timePoint, TableSet& tables) const {
    const auto place = LocateUpTo(timePoint, tables);
    return place ? std::optional(Get(*place)) : std::nullopt;
}

std::optional<std::int64_t> Log::FindTimeAfter(std::int64_t timePoint, TableSet& tables) const {
    const auto place = LocateAfter(timePoint, tables);
    return place ? std::optional(place->table->GetTimePoint(place->index)) : std::nullopt;
}

std::optional<std::int64_t> Log::FindTimeUpTo(std::int64_t timePoint, TableSet& tables) const {
    const auto place = LocateUpTo(timePoint, tables);
    return place ? std::optional(place->table->GetTimePoint(place->index)) : std::nullopt;
}

Log::Place Log::AimAt(std::int64_t timePoint, TableSet& tables) const {
    const auto run = std::partition_point(runs.begin(), runs.end(),
                                          [timePoint](const Run& r) { return r.last < timePoint; });
    if (run == runs.end()) {
        return {};
    }
    const EntryTable* table = GetTable(*run, tables);
    if (table != nullptr) {
        table->Prefetch(run->begin, run->end, timePoint);
    }
    return {&*run, table, 0};
}

ChunkSums Log::SumBefore(const Place& aim, std::int64_t timePoint) const {
    if (aim.run == nullptr) {
        return total;
    }
    const Run& run = *aim.run;
    const std::size_t index = run.first >= timePoint
                                  ? run.begin
                                  : aim.table->FindAfter(run.begin, run.end, timePoint - 1);
    return {run.countBase + index, run.durationBase + aim.table->GetDurationBefore(index)};
}

ChunkSums Log::Sum(std::int64_t in, std::int64_t out, TableSet& tables) const {
    // Both at once: what is looked at is seldom in the processor's caches.
    const Place from = AimAt(in, tables);
    const Place to = AimAt(out, tables);
    if (tables.IsMissing()) {
        return {};
    }
    const ChunkSums before = SumBefore(from, in);
    const ChunkSums behind = SumBefore(to, out);
    return {behind.count - before.count, behind.duration - before.duration};
}

void Log::Open(std::uint64_t segment, std::shared_ptr<EntryTable> table) {
    openSegment = segment;
    openTable = std::move(table);
}

void Log::Close(EntryCache& cache, std::uint64_t instance) {
    if (openTable) {
        openTable->Pack();
        cache.Put(EntryCache::Key{instance, kind, openSegment}, std::move(openTable));
        openTable.reset();
    }
}

void Log::Reserve(std::size_t count) {
    if (runs.capacity() - runs.size() < count) {
        runs.reserve(std::max(runs.size() + count, runs.size() * 2));
    }
}

void Log::Append(std::uint64_t segment, std::uint32_t index, const Engine::ChunkEntry& entry,
                 std::uint64_t durationBefore) {
    const std::uint64_t cost = ChunkLayout::Cost(entry.length);
    const auto duration = static_cast<std::uint64_t>(entry.duration);
    if (!runs.empty() && runs.back().segment == segment && runs.back().end == index) {
        Run& run = runs.back();
        ++run.end;
        run.last = entry.timePoint;
        run.lastDuration = entry.duration;
        run.reach = std::max(run.reach, Protections::EndOf(entry.timePoint, entry.duration));
        run.bytes += cost;
        run.duration += duration;
        bytes += cost;
        ++total.count;
        total.duration += duration;
        return;
    }
    Run run;
    run.segment = segment;
    run.begin = index;
    run.end = index + 1;
    run.first = entry.timePoint;
    run.last = entry.timePoint;
    run.lastDuration = entry.duration;
    run.reach = Protections::EndOf(entry.timePoint, entry.duration);
    run.bytes = cost;
    run.duration = duration;
    run.durationBefore = durationBefore;
    AppendRun(run);
}

void Log::AppendRun(Run run) {
    Count(run);
    runs.push_back(run);
}

void Log::Count(Run& run) {
    run.countBase = total.count - run.begin;
    run.durationBase = total.duration - run.durationBefore;
    total.count += run.end - run.begin;
    total.duration += run.duration;
    bytes += run.bytes;
}

void Log::DropFront(Front front) {
    bytes -= front.bytes;
    std::size_t whole = 0;
    while (whole < runs.size() && front.count >= runs[whole].end - runs[whole].begin) {
        const Run& run = runs[whole++];
        front.count -= run.end - run.begin;
        front.bytes -= run.bytes;
        front.duration -= run.duration;
    }
    runs.erase(runs.begin(), runs.begin() + static_cast<std::ptrdiff_t>(whole));
    if (front.count > 0) {
        Run& run = runs.front();
        run.begin += static_cast<std::uint32_t>(front.count);
        run.bytes -= front.bytes;
        run.duration -= front.duration;
        run.durationBefore += front.duration;
        run.first = front.firstLeft;
    }
}

void Log::Clear() {
    runs.clear();
    bytes = 0;
}

void Log::Replace(std::vector<Run> others) {
    runs.swap(others);
    bytes = 0;
    total = {};
    for (Run& run : runs) {
        Count(run);
    }
}

}  // namespace Brantel::Tracks
