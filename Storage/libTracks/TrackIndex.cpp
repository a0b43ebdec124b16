#include "TrackIndex.h"

#include "Protections.h"
#include "TableSet.h"

namespace Brantel::Tracks {

std::int64_t TrackIndex::GetBeginning() const {
    if (!held.IsEmpty()) {
        return held.GetFirst();
    }
    return ring.IsEmpty() ? -1 : ring.GetFirst();
}

std::int64_t TrackIndex::GetLast() const {
    if (!ring.IsEmpty()) {
        return ring.GetLast();
    }
    return held.IsEmpty() ? -1 : held.GetLast();
}

std::int64_t TrackIndex::GetEnd() const {
    if (!ring.IsEmpty()) {
        return ring.GetEnd();
    }
    return held.IsEmpty() ? -1 : held.GetEnd();
}

const Log& TrackIndex::LogWithAfter(std::int64_t timePoint) const {
    return !held.IsEmpty() && held.GetLast() > timePoint ? held : ring;
}

const Log& TrackIndex::LogWithUpTo(std::int64_t timePoint) const {
    return !ring.IsEmpty() && ring.GetFirst() <= timePoint ? ring : held;
}

std::optional<FoundChunk> TrackIndex::FindAfter(std::int64_t timePoint, TableSet& tables) const {
    return LogWithAfter(timePoint).FindAfter(timePoint, tables);
}

std::optional<FoundChunk> TrackIndex::FindUpTo(std::int64_t timePoint, TableSet& tables) const {
    return LogWithUpTo(timePoint).FindUpTo(timePoint, tables);
}

std::optional<FoundChunk> TrackIndex::FindBefore(std::int64_t timePoint, TableSet& tables) const {
    return timePoint <= 0 ? std::nullopt : FindUpTo(timePoint - 1, tables);
}

std::optional<std::int64_t> TrackIndex::FindTimeAfter(std::int64_t timePoint,
                                                      TableSet& tables) const {
    return LogWithAfter(timePoint).FindTimeAfter(timePoint, tables);
}

std::optional<std::int64_t> TrackIndex::FindTimeBefore(std::int64_t timePoint,
                                                       TableSet& tables) const {
    return timePoint <= 0 ? std::nullopt
                          : LogWithUpTo(timePoint - 1).FindTimeUpTo(timePoint - 1, tables);
}

std::optional<FoundChunk> TrackIndex::FindCovering(std::int64_t timePoint, TableSet& tables) const {
    std::optional<FoundChunk> found = FindUpTo(timePoint, tables);
    if (found && Protections::EndOf(found->entry.timePoint, found->entry.duration) <=
                     static_cast<std::uint64_t>(timePoint)) {
        found.reset();
    }
    return found;
}

ChunkSums TrackIndex::Sum(std::int64_t in, std::int64_t out, TableSet& tables) const {
    ChunkSums sums;
    if (in >= out) {
        return sums;
    }
    for (const Log* log : {&held, &ring}) {
        if (!log->IsEmpty()) {
            const ChunkSums some = log->Sum(in, out, tables);
            sums.count += some.count;
            sums.duration += some.duration;
        }
    }
    return sums;
}

}  // namespace Brantel::Tracks
