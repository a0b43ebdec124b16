#pragma once

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineCounters.h>
#include <libEngine/EngineError.h>
#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

// Told how far a long operation is, on the thread that runs it.
class IProgress {
  public:
    virtual ~IProgress() = default;

    // `done` of `total` (any unit, total > 0), from 0 on, never backwards. False: please stop.
    virtual bool Report(std::uint64_t done, std::uint64_t total) = 0;
};

// Told what a verification finds.
class IVerifyObserver : public IProgress {
  public:
    virtual void OnDamage(const Damage& damage) = 0;
};

// Takes one chunk while it is read.
class IChunkSink {
  public:
    virtual ~IChunkSink() = default;

    // Called once, with the verified first part (borrowed for the call) and the sizes of all parts.
    // For each further part that is wanted, destinations[i] is set to room for sizes[i] bytes that
    // lives until the read returns; the others stay null and are not read. destinations[0] is not
    // used.
    virtual void Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
                       std::span<char*> destinations) = 0;
};

// Ends its watch when destroyed; no callback runs after that.
class IWatch {
  public:
    virtual ~IWatch() = default;
};

// Where tracks are kept: guarded records, append-only segments in reserved space, and a signal.
// One per store. What a track means (rings, protections, lookups) is decided above.
//
// Threads: every operation may be called by any thread at any time and waits for none on another
// track longer than the medium makes it. Two rules are the caller's: the operations that write one
// segment (CreateSegment, Append, Seal, RemoveSegment) come one at a time, and none of its locks
// that a reader needs is held across a call that says "blocks".
// Failures: EngineError. An operation that failed has changed nothing, unless it says otherwise.
// Crash: of this process or the machine, at any instant. What was answered stays as promised; an
// unanswered operation is found done or not done, never half done.
class IEngine {
  public:
    virtual ~IEngine() = default;

    // ---- records: few, small (up to 1 MiB), each guarded by a checksum ----

    // Throws Damaged for a record that is not as it was written.
    virtual std::optional<Record> ReadRecord(const std::string& key) = 0;

    // Carries out all changes or none, as safe as the medium allows when it returns (blocks; calls
    // that arrive together share one flush). False: a version was not the expected one, nothing
    // was changed. A key occurs at most once in a batch. After Io nothing was changed either, but
    // a restart that follows may find it done.
    virtual bool WriteRecords(std::span<const RecordChange> changes) = 0;

    // All records whose key begins with `prefix`, in the order of the keys' bytes. A damaged one is
    // an error.
    virtual std::vector<Record> ScanRecords(const std::string& prefix) = 0;

    // The keys of the records that are not as they were written. Such a record can be written again
    // or removed like any other.
    virtual std::vector<std::string> ListDamagedRecords() { return {}; }

    // ---- space ----

    // Brings the track's space to exactly this reservation (blocks, long: the space is taken from
    // the medium, so that no append can find it full). The first report comes when the whole is
    // promised, that is, counted in GetSpace. Growing keeps the segments that exist, and the
    // segment size must be the same; shrinking (undoing a growth) gives back free segments only,
    // Refused when too many are in use. Asked twice for the same, does nothing the second time; cut
    // off by a crash, it can be asked for again or released. Throws NoSpace, Cancelled.
    virtual void Reserve(const Reservation& reservation, IProgress& progress) = 0;

    // Gives everything of the track back, its segments included (blocks; records stay). Nothing for
    // an unknown track; a stop that `progress` asks for is not heard. When it fails, the segments
    // are gone and part of the space may be given back: ask again.
    virtual void Release(TrackId track, IProgress& progress) = 0;

    virtual std::vector<Reservation> ListReservations() = 0;
    virtual Space GetSpace() = 0;

    // ---- segments ----

    // Makes a new, empty segment in the track's reserved space, which is durable with its first
    // chunk (blocks). Throws NoSpace when all segments of the reservation exist, Refused for a
    // number that exists.
    virtual void CreateSegment(const SegmentId& id, Epoch epoch) = 0;

    // Both logs, sorted by log and number. Open segments are listed with what is whole in them. A
    // removed segment may be listed again after a crash.
    virtual std::vector<SegmentInfo> ListSegments(TrackId track) = 0;

    // Chunks of the ring log with a lower ordinal are gone: at least what RemoveSegment was told
    // for the segments whose space has been used again. A loss of power can take the chunk that
    // tells of it and leave the segment removed. 0: nothing is known.
    virtual std::uint64_t GetRingFront(TrackId track) = 0;

    // Takes an open segment over: an older epoch's appends and seal throw Fenced from now on. The
    // answer is what the segment holds then. Throws Fenced when a newer one was here.
    virtual SegmentInfo Claim(const SegmentId& id, Epoch epoch) = 0;

    // Adds a chunk: `parts` (at least one, the first is what every read needs) behind the chunks
    // that are there; `entry.offset` is where that is, lengths follow ChunkLayout. Returns when the
    // chunk is as safe as asked (blocks; appends that arrive together share one flush), and with
    // Always or Interval as much holds for everything in front of it in its log. Readable from then
    // on.
    // NoSpace, Refused and Fenced leave the segment as it is. After Io it is Closed: it takes no
    // chunk any more, what was answered stays readable, and a Seal settles what it holds.
    virtual void Append(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                        std::span<const std::string_view> parts, const Durability& durability) = 0;

    // The same; an engine that keeps chunks in memory may take a part's bytes instead of copying
    // them: `offered` has, for each part, the text that the part is the whole of, or null, or is
    // empty. A text that was taken is left empty; one of less than leastTaken bytes never is. When
    // it throws, nothing was taken.
    static constexpr std::size_t leastTaken = std::size_t{16} << 10U;
    virtual void AppendTaking(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                              std::span<const std::string_view> parts,
                              std::span<std::string* const> /*offered*/,
                              const Durability& durability) {
        Append(id, epoch, entry, parts, durability);
    }

    // Makes safe what was appended with less than Always to the segment, and to its log in front of
    // it (blocks).
    virtual void Flush(const SegmentId& id) = 0;

    // Ends the segment with its first `count` chunks, which must be there; what was written behind
    // them is void. Writes the index; durable when it returns (blocks), but for what was appended
    // with less than Always: that, and the index with it, may follow a little later, and a segment
    // is listed as open again after a crash before. An empty segment can be sealed. Nothing for one
    // that is sealed with this count.
    virtual void Seal(const SegmentId& id, Epoch epoch, std::uint64_t count) = 0;

    // The index of an open or sealed segment (blocks). When a sealed one's index is damaged, what
    // reading the chunks themselves can restore.
    virtual std::vector<ChunkEntry> ReadEntries(const SegmentId& id) = 0;

    // Reads one chunk of the segment (blocks): the first part, then the parts that the sink wants,
    // each verified. Throws Gone when the segment was removed, also in the middle of the read, and
    // Damaged; the sink's destinations then hold anything.
    virtual void ReadChunk(const SegmentId& id, const ChunkEntry& entry, IChunkSink& sink) = 0;

    // Gives the segment's space back to the track's reservation. `ringFront`: chunks of the ring
    // log with a lower ordinal are gone by now, which no loss of power takes back once the space is
    // used again; what makes a segment of the held log superfluous must be safe before. Throws
    // Fenced; nothing for an unknown segment. A crash may bring the segment back, whole, until its
    // space is used again.
    virtual void RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t ringFront) = 0;

    // The file or object that a segment lies in, for messages.
    virtual std::string Describe(const SegmentId& id) = 0;

    // ---- proof ----

    // Reads and checks everything in the segment from `offset` on (blocks, long), reports each
    // damage and changes nothing. Stops early when `observer` asks for it, and without an error
    // when the segment is removed meanwhile.
    virtual void Verify(const SegmentId& id, std::uint32_t offset, IVerifyObserver& observer) = 0;

    // ---- signal ----

    // Wakes everyone who watches the track, on this server or another one. Costs nothing worth
    // counting when nobody does. Never fails: a lost signal is made up for by its receiver looking
    // once in a while.
    virtual void Notify(TrackId track, std::int64_t hint) noexcept = 0;

    // Calls `callback(hint)` for each Notify of the track until the watch is destroyed, on any
    // thread; it must be quick, must not throw and must not call the engine. Destroying the watch
    // waits for a running callback.
    virtual std::unique_ptr<IWatch> Watch(TrackId track,
                                          std::function<void(std::int64_t)> callback) = 0;

    // ---- counts ----

    // What was done since the engine was opened. Quick: nobody waits for whoever asks.
    virtual EngineCounters GetCounters() = 0;

  protected:
    IEngine() = default;
    IEngine(const IEngine&) = default;
    IEngine& operator=(const IEngine&) = default;
};

}  // namespace Brantel::Engine
