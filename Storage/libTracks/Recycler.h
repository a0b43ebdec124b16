#pragma once

#include "RecyclePlan.h"
#include "TrackLogs.h"
#include "TrackState.h"

#include <libEngine/IEngine.h>

#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

// Makes room in a track: carries held chunks over, lets the ring's front move, finds free segments
// and gives empty ones back. Works under the track's gate; blocks.
class Recycler {
  public:
    // All borrowed.
    Recycler(const TrackContext& context, TrackState& state, TrackLogs& logs)
        : context(context), state(state), logs(logs) {}

    // Copies the plan's held chunks to the held log, durable when it returns; they stay pending.
    // When segments run short it lets the front move on the way, and takes what has moved out of
    // the plan. A chunk that is damaged can't be copied and is given up, which is logged.
    void Carry(RecyclePlan& plan);

    // Puts a fresh tail in place for the ring. Where no segment is free, it packs the held log, or
    // lets the whole front segment go.
    void MakeRingTail();

    // Room for what MoveFrontLocked adds; may fail. Under the state's lock.
    void ReserveLocked();
    // Lets the plan's front leave the ring: what was carried is in the held log from now on. Does
    // not fail. Under the state's lock.
    void MoveFrontLocked(const RecyclePlan& plan);

    // How many segments of the track's reservation are not in use.
    std::uint64_t CountFreeSegments();
    // Gives segments back in which nothing is live. False: one could not be given back; it is tried
    // again the next time.
    bool RemoveEmptied();
    // The same behind a change that is done and answered as done: what fails is left for the next
    // time.
    void TryRemoveEmptied() noexcept;

    // The held log's runs, with what is pending behind them.
    std::vector<Log::Run> RunsWithPending();
    // Writes the track's record, with these runs as the held log and with `changes` in the same
    // batch. What is pending and not among the runs is dropped for good. Throws when it was not
    // written; then nothing has changed.
    void WriteRecord(TrackRecord record, const std::vector<Log::Run>& heldRuns,
                     std::vector<Engine::RecordChange> changes = {});

  private:
    bool IsPending(std::int64_t timePoint) const;
    void CopyToHeld(const FoundChunk& chunk);
    void FlushHeld();
    void MakeHeldTail(RecyclePlan& plan, std::size_t next);
    void MoveFrontBefore(RecyclePlan& plan, std::size_t next);
    void FreeFrontSegment();
    bool HasRoomForTail();
    void WriteFront();
    bool CanGainSegment(std::uint64_t free, TableSet& tables) const;
    std::vector<std::uint64_t> ListEmptied(Engine::LogKind kind);
    void GiveUp(const FoundChunk& chunk, const std::exception& error);

    const TrackContext& context;
    TrackState& state;
    TrackLogs& logs;
};

}  // namespace Brantel::Tracks
