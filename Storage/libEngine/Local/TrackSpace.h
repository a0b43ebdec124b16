#pragma once

#include "Local/LocalSegment.h"
#include "Local/SlotFolder.h"
#include "Local/SlotMark.h"

#include <libEngine/IEngine.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Engine {

// The space of one track: its slots, and the segments that lie in them. Thread-safe.
//
// The number of slots follows the reservation in the catalogue, which is written first: whatever
// cuts it off, asking for the same again brings it to its end.
class TrackSpace {
  public:
    // `found` and `settledCount`: what the catalogue says of it, if anything. Needs Load first.
    TrackSpace(const LocalContext& context, TrackId track, const Reservation& found,
               std::uint64_t settledCount);

    // Takes over what an earlier run left; nothing when that was done. Throws EngineError (Io) and
    // can then be called again.
    void Load();

    // As the operations of IEngine.
    void Reserve(const Reservation& wanted, IProgress& progress);
    void Release(IProgress& progress);
    Reservation GetReservation() const;
    void CreateSegment(const SegmentId& id, Epoch epoch);
    std::vector<SegmentInfo> ListSegments() const;
    // `timer` flushes what says that the segment is gone.
    void RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t front, FlushTimer& timer);
    std::uint64_t GetRingFront() const;

    // Throws Gone.
    std::shared_ptr<LocalSegment> Find(const SegmentId& id) const;
    std::shared_ptr<LocalSegment> TryFind(const SegmentId& id) const;  // null: no such segment
    // Flushes and indexes what is open; reports what fails.
    void Close() noexcept;

  private:
    using Slot = SlotFolder::Slot;
    using Key = std::pair<LogKind, std::uint64_t>;
    struct FreeSlot {
        Slot slot;
        bool used = false;  // by a segment, once
        // That this segment is gone; null: nothing in the file says so.
        std::shared_ptr<SlotMark> mark = nullptr;

        // A loss of power may bring that segment back.
        bool IsInUse() const { return used && !(mark && mark->IsSafe()); }
    };

    [[noreturn]] void Throw(EngineError::Kind kind, const std::string& text) const;
    std::shared_ptr<LocalSegment> FindBefore(const Key& key) const;
    std::shared_ptr<LocalSegment> FindToSettle(const Key& key) const;
    std::list<FreeSlot> TakeSlot();
    std::shared_ptr<SlotMark> Mark(std::shared_ptr<File> file, FlushTimer& timer) const noexcept;
    void CheckWanted(const Reservation& wanted) const;
    void Settle(const Reservation& wanted, IProgress& progress);
    void RemoveFreeSlots(std::uint64_t count);
    void UndoGrowth(const Reservation& wanted, std::uint64_t formerCount) noexcept;
    void ForgetSlots();

    const LocalContext& context;
    const TrackId track;
    const SlotFolder folder;
    std::atomic<bool> loaded = false;

    std::mutex spaceMutex;       // held by who loads, reserves or releases; taken before `mutex`
    std::uint64_t settledCount;  // guarded by spaceMutex: slots before a change that was cut off

    mutable std::mutex mutex;
    // guarded by mutex
    Reservation reservation;  // no segments: none
    std::uint64_t lastGeneration = 0;
    std::uint64_t ringFront = 0;  // where the ring begins at least, as RemoveSegment was told
    std::map<std::uint32_t, Slot> slots;
    std::list<FreeSlot> freeSlots;  // longest free first
    std::map<Key, std::shared_ptr<LocalSegment>> segments;
};

}  // namespace Brantel::Engine
