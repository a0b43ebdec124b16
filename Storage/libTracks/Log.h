#pragma once

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace Brantel::Tracks {

class EntryCache;
class EntryTable;
class TableSet;

// A chunk that was found: where its bytes are, and its entry.
struct FoundChunk {
    Engine::SegmentId segment;
    Engine::ChunkEntry entry;
};

// A number of chunks and the sum of their durations, modulo 2^64.
struct ChunkSums {
    std::uint64_t count = 0;
    std::uint64_t duration = 0;
};

// The live chunks of one log of a track, in order of time: runs of neighbouring entries of its
// segments. Knows where each run begins and ends and how much lies before it, so that every
// question costs two binary searches, one over the runs and one over the entries of a segment.
//
// Guarded by the track's state. Where an operation takes a TableSet and afterwards IsMissing() is
// true there, its answer means nothing: load the table and ask again.
class Log {
  public:
    struct Run {
        std::uint64_t segment = 0;
        std::uint32_t begin = 0;  // entries [begin, end) of the segment are live
        std::uint32_t end = 0;
        std::int64_t first = 0;  // time points of the first and last of them
        std::int64_t last = 0;
        std::int64_t lastDuration = 0;
        std::uint64_t reach = 0;           // no chunk of the run covers this time or a later one
        std::uint64_t bytes = 0;           // what they take of the capacity
        std::uint64_t duration = 0;        // sum of theirs, modulo 2^64
        std::uint64_t durationBefore = 0;  // sum of those before them in the segment
        // Set by the log: + index = chunks of the log before that entry, and the same for sums.
        std::uint64_t countBase = 0;
        std::uint64_t durationBase = 0;
    };

    // The beginning of a log, as much of it as is dropped.
    struct Front {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0;
        std::uint64_t duration = 0;
        std::int64_t firstLeft = 0;  // time point of the first chunk that stays, if one does
    };

    Log(Engine::TrackId track, Engine::LogKind kind) : track(track), kind(kind) {}

    bool IsEmpty() const { return runs.empty(); }
    // Time points of the first and the last chunk, and where the last one ends; only when not
    // empty.
    std::int64_t GetFirst() const { return runs.front().first; }
    std::int64_t GetLast() const { return runs.back().last; }
    std::int64_t GetEnd() const { return runs.back().last + runs.back().lastDuration; }
    std::uint64_t GetBytes() const { return bytes; }
    std::uint64_t GetCount() const {
        return runs.empty() ? 0 : total.count - runs.front().countBase - runs.front().begin;
    }
    const std::vector<Run>& GetRuns() const { return runs; }

    // The first chunk after `timePoint`.
    std::optional<FoundChunk> FindAfter(std::int64_t timePoint, TableSet& tables) const;
    // The last chunk at or before `timePoint`.
    std::optional<FoundChunk> FindUpTo(std::int64_t timePoint, TableSet& tables) const;
    // Time points of the same: what lies elsewhere in their entries is not looked at.
    std::optional<std::int64_t> FindTimeAfter(std::int64_t timePoint, TableSet& tables) const;
    std::optional<std::int64_t> FindTimeUpTo(std::int64_t timePoint, TableSet& tables) const;
    // The chunks in [in, out), in < out.
    ChunkSums Sum(std::int64_t in, std::int64_t out, TableSet& tables) const;
    Engine::SegmentId GetId(const Run& run) const { return {track, kind, run.segment}; }
    // The index of a run's segment. Throws EngineError (Damaged) when it has fewer entries than it
    // had, as what is left of a damaged one may.
    const EntryTable* GetTable(const Run& run, TableSet& tables) const;

    // ---- changes ----

    // The segment that is appended to, whose index is kept here until it is sealed.
    void Open(std::uint64_t segment, std::shared_ptr<EntryTable> table);
    // It was sealed: its index moves to the cache.
    void Close(EntryCache& cache, std::uint64_t instance);
    const std::shared_ptr<EntryTable>& GetOpenTable() const { return openTable; }

    // Makes room, so that the next `count` calls of Append do not fail.
    void Reserve(std::size_t count);
    // Adds a chunk behind all others: entry `index` of the segment, before which the segment's
    // durations sum up to `durationBefore`.
    void Append(std::uint64_t segment, std::uint32_t index, const Engine::ChunkEntry& entry,
                std::uint64_t durationBefore);
    // Adds several at once.
    void AppendRun(Run run);
    void DropFront(Front front);
    void Clear();
    // Puts other runs in place of all: parts of the present ones, or copies of their chunks. Does
    // not fail.
    void Replace(std::vector<Run> others);

  private:
    // Where an entry is.
    struct Place {
        const Run* run = nullptr;
        const EntryTable* table = nullptr;
        std::size_t index = 0;
    };

    std::optional<Place> LocateAfter(std::int64_t timePoint, TableSet& tables) const;
    std::optional<Place> LocateUpTo(std::int64_t timePoint, TableSet& tables) const;
    // Where the first chunk at or behind the time point is to be looked for: without an index yet,
    // and without a run behind the last one.
    Place AimAt(std::int64_t timePoint, TableSet& tables) const;
    // The chunks before the time point; only differences of two answers mean something.
    ChunkSums SumBefore(const Place& aim, std::int64_t timePoint) const;
    FoundChunk Get(const Place& place) const;
    void Count(Run& run);
    [[noreturn]] void ThrowIndexDamaged(const Run& run) const;

    Engine::TrackId track;
    Engine::LogKind kind;
    std::vector<Run> runs;
    std::uint64_t bytes = 0;
    ChunkSums total;  // of everything that was ever appended here
    std::uint64_t openSegment = 0;
    // Shared with the cache once it is sealed.
    std::shared_ptr<EntryTable> openTable;
};

}  // namespace Brantel::Tracks
