#include "Local/TrackSpace.h"

#include "ChunkLayout.h"
#include "EngineError.h"
#include "Local/Catalogue.h"
#include "Local/Report.h"
#include "Local/SegmentScanner.h"
#include "Local/SlotLoader.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <list>
#include <utility>

namespace Brantel::Engine {

TrackSpace::TrackSpace(const LocalContext& context, TrackId track, const Reservation& found,
                       std::uint64_t settledCount)
    : context(context),
      track(track),
      folder(context, track),
      settledCount(settledCount),
      reservation(found) {}

void TrackSpace::Throw(EngineError::Kind kind, const std::string& text) const {
    throw EngineError(kind, folder.GetPath() + ": " + text);
}

void TrackSpace::Load() {
    if (loaded) {
        return;
    }
    const std::lock_guard spaceLock(spaceMutex);
    if (loaded) {
        return;
    }
    const Reservation found = GetReservation();
    const std::vector<Slot> list = folder.List();
    SlotLoader loader(context, track, found.segmentSize);
    for (const Slot& slot : list) {
        loader.Load(slot);
    }
    std::map<std::uint32_t, Slot> byNumber;
    for (const Slot& slot : list) {
        byNumber.emplace(slot->GetNumber(), slot);
    }
    for (const Slot& slot : loader.spoiltSlots) {
        byNumber.erase(slot->GetNumber());
    }
    std::list<FreeSlot> free;
    for (const Slot& slot : loader.blankSlots) {
        free.push_back({slot, false});
    }
    for (const Slot& slot : loader.usedSlots) {
        free.push_back({slot, true});
    }
    const std::lock_guard lock(mutex);
    slots = std::move(byNumber);
    freeSlots = std::move(free);
    segments = std::move(loader.segments);
    lastGeneration = loader.lastGeneration;
    ringFront = loader.ringFront;
    for (const auto& [key, segment] : segments) {
        segment->SetRingFront(ringFront);
    }
    const std::uint64_t missing =
        found.segmentCount - std::min<std::uint64_t>(found.segmentCount, slots.size());
    context.budget.Adopt(0, missing * found.segmentSize);
    if (missing > 0 && settledCount == found.segmentCount) {
        context.options.report(folder.GetPath() + ": " + std::to_string(missing) + " of " +
                               std::to_string(found.segmentCount) + " segment files are missing");
    }
    // Asking for the same reservation again makes what is missing.
    settledCount = std::min<std::uint64_t>(settledCount, slots.size());
    loaded = true;
}

Reservation TrackSpace::GetReservation() const {
    const std::lock_guard lock(mutex);
    return reservation;
}

void TrackSpace::CheckWanted(const Reservation& wanted) const {
    const std::lock_guard lock(mutex);
    if (reservation.segmentCount != 0 && reservation.segmentSize != wanted.segmentSize) {
        Throw(EngineError::Kind::Refused, "segments have " +
                                              std::to_string(reservation.segmentSize) +
                                              " bytes, not " + std::to_string(wanted.segmentSize));
    }
    if (segments.size() > wanted.segmentCount) {
        Throw(EngineError::Kind::Refused, std::to_string(segments.size()) +
                                              " segments are in use, more than " +
                                              std::to_string(wanted.segmentCount));
    }
}

void TrackSpace::Reserve(const Reservation& wanted, IProgress& progress) {
    Load();
    const std::lock_guard spaceLock(spaceMutex);
    CheckWanted(wanted);
    const Reservation former = GetReservation();
    if (wanted == former && settledCount == former.segmentCount) {
        progress.Report(0, 1);
        progress.Report(1, 1);
        return;
    }
    if (wanted.Bytes() > former.Bytes()) {
        context.budget.Promise(wanted.Bytes() - former.Bytes());
    }
    {
        const std::lock_guard lock(mutex);
        reservation = wanted;
    }
    const std::uint64_t formerCount = std::min(settledCount, wanted.segmentCount);
    try {
        context.catalogue.WriteReservation({wanted, formerCount});
        Settle(wanted, progress);
    } catch (const std::exception&) {
        if (wanted.segmentCount > formerCount) {
            UndoGrowth(wanted, formerCount);
        }
        throw;
    }
    if (wanted.Bytes() < former.Bytes()) {
        context.budget.GiveBack(former.Bytes() - wanted.Bytes(), 0);
    }
}

void TrackSpace::Settle(const Reservation& wanted, IProgress& progress) {
    std::vector<std::uint32_t> numbers;
    std::uint64_t count = 0;
    {
        const std::lock_guard lock(mutex);
        count = slots.size();
        for (std::uint32_t number = 0; count + numbers.size() < wanted.segmentCount; ++number) {
            if (!slots.contains(number)) {
                numbers.push_back(number);
            }
        }
    }
    if (count > wanted.segmentCount) {
        progress.Report(0, 1);
        RemoveFreeSlots(count - wanted.segmentCount);
        progress.Report(1, 1);
    } else {
        // Their places in the lists come first: once the files are there, nothing may fail.
        std::list<FreeSlot> free(numbers.size());
        std::map<std::uint32_t, Slot> added;
        for (const std::uint32_t number : numbers) {
            added.emplace(number, nullptr);
        }
        const std::vector<Slot> made = folder.Make(numbers, wanted.segmentSize, progress);
        auto place = free.begin();
        for (const Slot& slot : made) {
            place->slot = slot;
            added.find(slot->GetNumber())->second = slot;
            ++place;
        }
        const std::lock_guard lock(mutex);
        slots.merge(added);
        freeSlots.splice(freeSlots.end(), free);
    }
    context.catalogue.WriteReservation({wanted, wanted.segmentCount});
    settledCount = wanted.segmentCount;
}

void TrackSpace::RemoveFreeSlots(std::uint64_t count) {
    for (; count > 0; --count) {
        std::list<FreeSlot> taken;
        {
            const std::lock_guard lock(mutex);
            const auto last = std::max_element(freeSlots.begin(), freeSlots.end(),
                                               [](const FreeSlot& a, const FreeSlot& b) {
                                                   return a.slot->GetNumber() < b.slot->GetNumber();
                                               });
            if (last == freeSlots.end()) {
                break;
            }
            taken.splice(taken.end(), freeSlots, last);
        }
        try {
            folder.Remove(taken.front().slot);
        } catch (const std::exception&) {
            const std::lock_guard lock(mutex);
            freeSlots.splice(freeSlots.end(), taken);
            throw;
        }
        const std::lock_guard lock(mutex);
        slots.erase(taken.front().slot->GetNumber());
    }
    folder.Flush();
}

void TrackSpace::UndoGrowth(const Reservation& wanted, std::uint64_t formerCount) noexcept {
    std::uint64_t count = 0;
    {
        const std::lock_guard lock(mutex);
        count = slots.size();
    }
    context.budget.GiveBack(0, (wanted.segmentCount - count) * wanted.segmentSize);
    try {
        if (count > formerCount) {
            RemoveFreeSlots(count - formerCount);
        }
    } catch (const std::exception& error) {
        Tell(context.options.report, error.what());
    }
    {
        const std::lock_guard lock(mutex);
        formerCount = slots.size();
        reservation.segmentCount = formerCount;
        settledCount = formerCount;
    }
    context.budget.GiveBack((wanted.segmentCount - formerCount) * wanted.segmentSize, 0);
    try {
        if (formerCount > 0) {
            context.catalogue.WriteReservation({GetReservation(), formerCount});
        } else {
            folder.RemoveFolder();
            context.catalogue.RemoveReservation(track);
        }
    } catch (const std::exception& error) {
        // The next start finds the larger reservation unfinished, which can be asked for again.
        Tell(context.options.report, error.what());
    }
}

void TrackSpace::Release(IProgress& progress) {
    Load();
    const std::lock_guard spaceLock(spaceMutex);
    const Reservation former = GetReservation();
    if (former.segmentCount == 0) {
        return;
    }
    // From now on it is known that files may be missing; until it is done, asking for the same
    // reservation again makes them.
    context.catalogue.WriteReservation({former, 0});
    settledCount = 0;
    std::map<Key, std::shared_ptr<LocalSegment>> removed;
    std::map<std::uint32_t, Slot> released;
    std::list<FreeSlot> left;  // free if it does not come to its end
    {
        const std::lock_guard lock(mutex);
        released = slots;
        for (const auto& [number, slot] : slots) {
            left.push_back({slot, true});
        }
        freeSlots.clear();
        segments.swap(removed);
        ringFront = 0;  // what comes next under this number is another track
    }
    for (const auto& [key, segment] : removed) {
        segment->SetRemoved();
    }
    std::uint64_t done = 0;
    try {
        for (const auto& [number, slot] : released) {
            progress.Report(done, released.size() + 1);
            folder.Remove(slot);
            ++done;
            left.pop_front();
            const std::lock_guard lock(mutex);
            slots.erase(number);
        }
        folder.RemoveFolder();
        context.catalogue.RemoveReservation(track);
    } catch (const std::exception&) {
        context.budget.Adopt(0, done * former.segmentSize);
        const std::lock_guard lock(mutex);
        freeSlots.splice(freeSlots.end(), left);
        throw;
    }
    {
        const std::lock_guard lock(mutex);
        reservation = {};
    }
    context.budget.GiveBack(former.Bytes(),
                            (former.segmentCount - released.size()) * former.segmentSize);
    progress.Report(released.size() + 1, released.size() + 1);
}

void TrackSpace::CreateSegment(const SegmentId& id, Epoch epoch) {
    Load();
    const Key key{id.log, id.number};
    std::list<FreeSlot> free;
    SegmentFormat::Identity identity;
    std::shared_ptr<LocalSegment> before;
    std::shared_ptr<LocalSegment> settled;
    std::uint64_t front = 0;
    {
        const std::lock_guard lock(mutex);
        if (reservation.segmentCount == 0) {
            Throw(EngineError::Kind::Refused, "no space is reserved");
        }
        if (segments.contains(key)) {
            Throw(EngineError::Kind::Refused, "segment " + std::to_string(id.number) + " exists");
        }
        if (freeSlots.empty() || segments.size() >= reservation.segmentCount) {
            Throw(EngineError::Kind::NoSpace,
                  "no free segment: " + std::to_string(segments.size()) + " of " +
                      std::to_string(reservation.segmentCount) + " are used");
        }
        identity = {track,
                    id.number,
                    lastGeneration + 1,
                    epoch,
                    epoch,
                    static_cast<std::uint32_t>(id.log),
                    reservation.segmentSize};
        before = FindBefore(key);
        settled = FindToSettle(key);
        free = TakeSlot();
        ++lastGeneration;
        front = ringFront;
    }
    try {
        if (free.front().used && settled && !settled->IsSafe()) {
            settled->MakeSafe();
        }
        if (free.front().mark) {
            // Done by now, as a rule. Nothing else may flush the file of a segment in use.
            free.front().mark->FlushNow();
        }
        auto segment = std::make_shared<LocalSegment>(free.front().slot, identity, SegmentContent{},
                                                      context.options.report, context.flushMeter);
        if (before && !before->IsSafe()) {
            segment->SetPredecessor(std::move(before));
        }
        segment->SetRingFront(front);
        segment->WriteStart(free.front().IsInUse());
        const std::lock_guard lock(mutex);
        segments.emplace(key, std::move(segment));
    } catch (const std::exception&) {
        free.front().used = true;
        free.front().mark.reset();
        const std::lock_guard lock(mutex);
        freeSlots.splice(freeSlots.end(), free);
        throw;
    }
}

// The last segment of the log in front of this key.
std::shared_ptr<LocalSegment> TrackSpace::FindBefore(const Key& key) const {
    const auto behind = segments.lower_bound(key);
    if (behind == segments.begin()) {
        return nullptr;
    }
    const auto& [found, segment] = *std::prev(behind);
    return found.first == key.first ? segment : nullptr;
}

// The segment of the log that has to be safe before this one takes a used slot; null: none. About
// half of what a full ring holds outlasts a loss of power so, however slow the medium is.
std::shared_ptr<LocalSegment> TrackSpace::FindToSettle(const Key& key) const {
    std::uint64_t left = std::max<std::uint64_t>(2, reservation.segmentCount / 2) - 1;
    auto place = segments.lower_bound(key);
    while (left > 0 && place != segments.begin() && std::prev(place)->first.first == key.first) {
        --place;
        --left;
    }
    return left > 0 ? nullptr : place->second;
}

// The longest free one, of those that need no flush before if there are such.
std::list<TrackSpace::FreeSlot> TrackSpace::TakeSlot() {
    const auto ready = std::find_if(freeSlots.begin(), freeSlots.end(),
                                    [](const FreeSlot& slot) { return !slot.IsInUse(); });
    std::list<FreeSlot> taken;
    taken.splice(taken.end(), freeSlots, ready == freeSlots.end() ? freeSlots.begin() : ready);
    return taken;
}

std::uint64_t TrackSpace::GetRingFront() const {
    const std::lock_guard lock(mutex);
    return ringFront;
}

// Null when there is no memory for it: the next segment in the slot is made without it.
std::shared_ptr<SlotMark> TrackSpace::Mark(std::shared_ptr<File> file,
                                           FlushTimer& timer) const noexcept {
    try {
        auto mark =
            std::make_shared<SlotMark>(std::move(file), context.options.report, context.flushMeter);
        timer.Schedule(mark, std::chrono::milliseconds(0));
        return mark;
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::vector<SegmentInfo> TrackSpace::ListSegments() const {
    std::vector<SegmentInfo> list;
    const std::lock_guard lock(mutex);
    list.reserve(segments.size());
    for (const auto& [key, segment] : segments) {
        list.push_back(segment->GetInfo());
    }
    return list;
}

std::shared_ptr<LocalSegment> TrackSpace::TryFind(const SegmentId& id) const {
    const std::lock_guard lock(mutex);
    const auto segment = segments.find(Key{id.log, id.number});
    return segment == segments.end() ? nullptr : segment->second;
}

std::shared_ptr<LocalSegment> TrackSpace::Find(const SegmentId& id) const {
    std::shared_ptr<LocalSegment> segment = TryFind(id);
    if (!segment) {
        Throw(EngineError::Kind::Gone, std::string("no segment ") +
                                           (id.log == LogKind::Ring ? "ring " : "held ") +
                                           std::to_string(id.number));
    }
    return segment;
}

void TrackSpace::RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t front,
                               FlushTimer& timer) {
    std::shared_ptr<LocalSegment> removed;
    std::list<FreeSlot> freed(1);  // before anything changes: there may be no memory
    {
        const std::lock_guard lock(mutex);
        const auto segment = segments.find(Key{id.log, id.number});
        if (segment == segments.end()) {
            return;
        }
        segment->second->CheckEpoch(epoch);
        ringFront = std::max(ringFront, front);
        front = ringFront;
        removed = std::move(segment->second);
        segments.erase(segment);
    }
    freed.front() = {removed->GetSlot(), true};
    if (std::shared_ptr<File> file = removed->MarkRemoved(front)) {
        freed.front().mark = Mark(std::move(file), timer);
    }
    const std::lock_guard lock(mutex);
    if (slots.contains(removed->GetSlot()->GetNumber())) {
        freeSlots.splice(freeSlots.end(), freed);
    }
}

void TrackSpace::Close() noexcept {
    std::map<Key, std::shared_ptr<LocalSegment>> open;
    try {
        const std::lock_guard lock(mutex);
        open = segments;
    } catch (const std::exception& error) {
        Tell(context.options.report, error.what());
    }
    for (const auto& [key, segment] : open) {
        try {
            segment->Close();
        } catch (const std::exception& error) {
            Tell(context.options.report, error.what());
        }
    }
}

}  // namespace Brantel::Engine
