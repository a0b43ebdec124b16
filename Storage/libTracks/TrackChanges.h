#pragma once

#include "Recycler.h"
#include "TrackLogs.h"
#include "TrackState.h"

#include <libEngine/IEngine.h>

#include <cstdint>
#include <mutex>
#include <vector>

namespace Brantel::Tracks {

class EncodedChunk;

// Everything that changes what a track holds, one change at a time: its gate is held from the
// beginning of a change to its end, through writing and flushing. So changes of one track wait for
// each other; readers and changes of other tracks never do.
//
// Thread-safe. Every failure leaves the track as it was: EngineError, or std::runtime_error
// "Track 7: ...".
class TrackChanges {
  public:
    // Both borrowed.
    TrackChanges(const TrackContext& context, TrackState& state);

    // For a new track, whose record has been written.
    void Start(const TrackRecord& record);
    // At the start of a server: finds out what the track holds.
    void Load(const TrackRecord& record);

    void Append(EncodedChunk& chunk);
    void Clear();
    void Protect(std::int64_t id, const Protections::Stretch& stretch);
    // False: there is no such protection.
    bool Unprotect(std::int64_t id);

    // Each writes the track's record together with `changes`. BecomeReady: it has been created.
    // BeginDeletion: it is refused while there are protections or open workers; from then on the
    // track is of no use to anyone.
    void BecomeReady(std::vector<Engine::RecordChange> changes);
    void BeginDeletion(std::vector<Engine::RecordChange> changes);
    std::uint64_t GetCapacity();
    // Makes it known for good where the ring begins (blocks): before segments that tell of it may
    // be given back.
    void KeepFront();
    void SetCapacity(std::uint64_t capacity, std::vector<Engine::RecordChange> changes);

  private:
    std::uint64_t LayOut(EncodedChunk& chunk);
    RecyclePlan PlanAppend(const EncodedChunk& chunk, std::uint64_t cost,
                           Engine::Durability& durability);
    void CheckAppendLocked(const EncodedChunk& chunk, std::uint64_t cost) const;
    void ReserveAppend();
    bool PublishAppend(const RecyclePlan& plan, const Engine::ChunkEntry& entry,
                       std::uint64_t payload);
    std::vector<Log::Run> HeldRunsWithout(const Protections::Stretch& ended,
                                          const Protections& rest);

    const TrackContext& context;
    TrackState& state;
    std::mutex gate;  // taken before the state's lock
    // guarded by gate
    TrackLogs logs;
    Recycler recycler;
};

}  // namespace Brantel::Tracks
