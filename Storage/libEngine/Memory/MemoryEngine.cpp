#include "Memory/MemoryEngine.h"

#include "Memory/MemorySegment.h"

#include <algorithm>
#include <utility>

namespace Brantel::Engine {

namespace {

[[noreturn]] void ThrowTrack(EngineError::Kind kind, TrackId track, const std::string& text) {
    throw EngineError(kind, "memory/" + std::to_string(track) + ": " + text);
}

}  // namespace

MemoryEngine::MemoryEngine(std::uint64_t limit) : limit(limit) {}

MemoryEngine::~MemoryEngine() = default;

std::unique_ptr<MemoryEngine> MemoryEngine::Clone() {
    auto clone = std::make_unique<MemoryEngine>(limit);
    const std::lock_guard lock(mutex);
    clone->lastVersion = lastVersion;
    clone->records = records;
    clone->reservations = reservations;
    clone->ringFronts = ringFronts;
    for (const auto& [id, segment] : segments) {
        clone->segments.emplace(id, std::make_shared<MemorySegment>(*segment));
    }
    return clone;
}

std::optional<Record> MemoryEngine::ReadRecord(const std::string& key) {
    const std::lock_guard lock(mutex);
    const auto record = records.find(key);
    return record == records.end() ? std::nullopt : std::optional(record->second);
}

bool MemoryEngine::WriteRecords(std::span<const RecordChange> changes) {
    const std::lock_guard lock(mutex);
    for (const RecordChange& change : changes) {
        const auto record = records.find(change.key);
        const std::uint64_t version = record == records.end() ? 0 : record->second.version;
        if (change.expected.value_or(version) != version) {
            return false;
        }
    }
    // Built beside the records, so that running out of memory half-way changes nothing.
    std::map<std::string, Record> written;
    for (const RecordChange& change : changes) {
        if (change.value) {
            written.emplace(change.key, Record{change.key, *change.value, ++lastVersion});
        }
    }
    for (const RecordChange& change : changes) {
        records.erase(change.key);
    }
    records.merge(written);
    return true;
}

std::vector<Record> MemoryEngine::ScanRecords(const std::string& prefix) {
    const std::lock_guard lock(mutex);
    std::vector<Record> found;
    for (auto record = records.lower_bound(prefix);
         record != records.end() && record->first.compare(0, prefix.size(), prefix) == 0;
         ++record) {
        found.push_back(record->second);
    }
    return found;
}

std::uint64_t MemoryEngine::ReservedLocked() const {
    std::uint64_t reserved = 0;
    for (const auto& [track, reservation] : reservations) {
        reserved += reservation.Bytes();
    }
    return reserved;
}

std::uint64_t MemoryEngine::SegmentsLocked(TrackId track) const {
    return static_cast<std::uint64_t>(
        std::count_if(segments.begin(), segments.end(),
                      [track](const auto& s) { return s.first.track == track; }));
}

void MemoryEngine::Reserve(const Reservation& reservation, IProgress& progress) {
    std::optional<Reservation> former;
    {
        const std::lock_guard lock(mutex);
        const auto present = reservations.find(reservation.track);
        if (present != reservations.end()) {
            former = present->second;
        }
        if (former && former->segmentSize != reservation.segmentSize) {
            ThrowTrack(EngineError::Kind::Refused, reservation.track, "another segment size");
        }
        if (SegmentsLocked(reservation.track) > reservation.segmentCount) {
            ThrowTrack(EngineError::Kind::Refused, reservation.track, "more segments are in use");
        }
        const std::uint64_t available = limit - ReservedLocked() + (former ? former->Bytes() : 0);
        if (reservation.Bytes() > available) {
            ThrowTrack(EngineError::Kind::NoSpace, reservation.track,
                       std::to_string(reservation.Bytes()) + " bytes are more than the " +
                           std::to_string(available) + " that can be reserved");
        }
        reservations[reservation.track] = reservation;
    }
    if (!progress.Report(0, 1)) {
        const std::lock_guard lock(mutex);
        if (former) {
            reservations[reservation.track] = *former;
        } else {
            reservations.erase(reservation.track);
        }
        ThrowTrack(EngineError::Kind::Cancelled, reservation.track, "reserving was cancelled");
    }
    progress.Report(1, 1);
}

void MemoryEngine::Release(TrackId track, IProgress& progress) {
    progress.Report(0, 1);
    {
        const std::lock_guard lock(mutex);
        reservations.erase(track);
        ringFronts.erase(track);
        std::erase_if(segments, [track](const auto& entry) {
            if (entry.first.track == track) {
                entry.second->SetRemoved();
            }
            return entry.first.track == track;
        });
    }
    progress.Report(1, 1);
}

std::vector<Reservation> MemoryEngine::ListReservations() {
    const std::lock_guard lock(mutex);
    std::vector<Reservation> list;
    for (const auto& [track, reservation] : reservations) {
        list.push_back(reservation);
    }
    return list;
}

Space MemoryEngine::GetSpace() {
    const std::lock_guard lock(mutex);
    const std::uint64_t reserved = ReservedLocked();
    return Space{limit, reserved, limit - reserved};
}

void MemoryEngine::CreateSegment(const SegmentId& id, Epoch epoch) {
    const std::lock_guard lock(mutex);
    const auto reservation = reservations.find(id.track);
    if (reservation == reservations.end()) {
        ThrowTrack(EngineError::Kind::Refused, id.track, "no space is reserved");
    }
    if (segments.contains(id)) {
        ThrowTrack(EngineError::Kind::Refused, id.track,
                   "segment " + std::to_string(id.number) + " exists");
    }
    if (SegmentsLocked(id.track) >= reservation->second.segmentCount) {
        ThrowTrack(
            EngineError::Kind::NoSpace, id.track,
            "all " + std::to_string(reservation->second.segmentCount) + " segments are used");
    }
    segments.emplace(id,
                     std::make_shared<MemorySegment>(id, reservation->second.segmentSize, epoch));
}

std::shared_ptr<MemorySegment> MemoryEngine::Find(const SegmentId& id) {
    const std::lock_guard lock(mutex);
    const auto segment = segments.find(id);
    if (segment == segments.end()) {
        throw EngineError(EngineError::Kind::Gone, Describe(id) + ": no such segment");
    }
    return segment->second;
}

std::vector<SegmentInfo> MemoryEngine::ListSegments(TrackId track) {
    const std::lock_guard lock(mutex);
    std::vector<SegmentInfo> list;
    for (const auto& [id, segment] : segments) {
        if (id.track == track) {
            list.push_back(segment->GetInfo());
        }
    }
    return list;
}

SegmentInfo MemoryEngine::Claim(const SegmentId& id, Epoch epoch) {
    return Find(id)->Claim(epoch);
}

void MemoryEngine::Append(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                          std::span<const std::string_view> parts, const Durability&) {
    Find(id)->Append(epoch, entry, parts, {});
}

void MemoryEngine::AppendTaking(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                                std::span<const std::string_view> parts,
                                std::span<std::string* const> offered, const Durability&) {
    Find(id)->Append(epoch, entry, parts, offered);
}

void MemoryEngine::Flush(const SegmentId& id) {
    Find(id);
}

void MemoryEngine::Seal(const SegmentId& id, Epoch epoch, std::uint64_t count) {
    Find(id)->Seal(epoch, count);
}

std::vector<ChunkEntry> MemoryEngine::ReadEntries(const SegmentId& id) {
    return Find(id)->ReadEntries();
}

void MemoryEngine::ReadChunk(const SegmentId& id, const ChunkEntry& entry, IChunkSink& sink) {
    Find(id)->ReadChunk(entry, sink);
}

std::uint64_t MemoryEngine::GetRingFront(TrackId track) {
    const std::lock_guard lock(mutex);
    const auto front = ringFronts.find(track);
    return front == ringFronts.end() ? 0 : front->second;
}

void MemoryEngine::RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t ringFront) {
    const std::lock_guard lock(mutex);
    const auto segment = segments.find(id);
    if (segment != segments.end()) {
        segment->second->CheckEpoch(epoch);
        std::uint64_t& front = ringFronts[id.track];
        front = std::max(front, ringFront);
        segment->second->SetRemoved();
        segments.erase(segment);
    }
}

std::string MemoryEngine::Describe(const SegmentId& id) {
    return MemorySegment::Describe(id);
}

void MemoryEngine::Verify(const SegmentId& id, std::uint32_t offset, IVerifyObserver& observer) {
    try {
        Find(id)->Verify(offset, observer);
    } catch (const EngineError& error) {
        if (error.GetKind() != EngineError::Kind::Gone) {
            throw;
        }
    }
}

void MemoryEngine::Notify(TrackId track, std::int64_t hint) noexcept {
    signal.Notify(track, hint);
}

std::unique_ptr<IWatch> MemoryEngine::Watch(TrackId track,
                                            std::function<void(std::int64_t)> callback) {
    return signal.Watch(track, std::move(callback));
}

void MemoryEngine::FlipBit(const SegmentId& id, const ChunkEntry& entry, std::size_t part) {
    Find(id)->FlipBit(entry, part);
}

}  // namespace Brantel::Engine
