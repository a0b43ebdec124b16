#include "Local/LocalEngine.h"

#include "EngineError.h"
#include "Local/LocalStore.h"
#include "Local/SegmentFormat.h"

#include <utility>

namespace Brantel::Engine {

LocalEngine::LocalEngine(const LocalOptions& options, IFileCalls* calls)
    : store(std::make_unique<LocalStore>(options, calls)) {}

LocalEngine::~LocalEngine() = default;

std::optional<Record> LocalEngine::ReadRecord(const std::string& key) {
    return store->GetCatalogue().Read(key);
}

bool LocalEngine::WriteRecords(std::span<const RecordChange> changes) {
    return store->GetCatalogue().Write(changes);
}

std::vector<Record> LocalEngine::ScanRecords(const std::string& prefix) {
    return store->GetCatalogue().Scan(prefix);
}

std::vector<std::string> LocalEngine::ListDamagedRecords() {
    return store->GetCatalogue().ListDamaged();
}

void LocalEngine::Reserve(const Reservation& reservation, IProgress& progress) {
    constexpr std::uint64_t maxSegmentCount = 1U << 24U;
    if (reservation.segmentSize % ChunkLayout::unit != 0 ||
        reservation.segmentSize < SegmentFormat::minSegmentSize ||
        reservation.segmentSize > ChunkLayout::maxSegmentSize || reservation.segmentCount == 0 ||
        reservation.segmentCount > maxSegmentCount) {
        throw EngineError(EngineError::Kind::Refused,
                          "Track " + std::to_string(reservation.track) + ": " +
                              std::to_string(reservation.segmentCount) + " segments of " +
                              std::to_string(reservation.segmentSize) +
                              " bytes can't be reserved; 1 to " + std::to_string(maxSegmentCount) +
                              " of " + std::to_string(SegmentFormat::minSegmentSize) + " to " +
                              std::to_string(ChunkLayout::maxSegmentSize) + ", a multiple of " +
                              std::to_string(ChunkLayout::unit) + ", can");
    }
    store->FindOrMakeTrack(reservation.track)->Reserve(reservation, progress);
}

void LocalEngine::Release(TrackId track, IProgress& progress) {
    if (const auto space = store->FindTrack(track)) {
        space->Release(progress);
    }
}

std::vector<Reservation> LocalEngine::ListReservations() {
    std::vector<Reservation> list;
    for (const auto& track : store->ListTracks()) {
        const Reservation reservation = track->GetReservation();
        if (reservation.segmentCount > 0) {
            list.push_back(reservation);
        }
    }
    return list;
}

Space LocalEngine::GetSpace() {
    return store->GetBudget().GetSpace();
}

void LocalEngine::CreateSegment(const SegmentId& id, Epoch epoch) {
    store->FindOrMakeTrack(id.track)->CreateSegment(id, epoch);
}

std::vector<SegmentInfo> LocalEngine::ListSegments(TrackId track) {
    const auto space = store->FindTrack(track);
    return space ? space->ListSegments() : std::vector<SegmentInfo>();
}

std::uint64_t LocalEngine::GetRingFront(TrackId track) {
    const auto space = store->FindTrack(track);
    return space ? space->GetRingFront() : 0;
}

SegmentInfo LocalEngine::Claim(const SegmentId& id, Epoch epoch) {
    return store->FindSegment(id)->Claim(epoch);
}

void LocalEngine::Append(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                         std::span<const std::string_view> parts, const Durability& durability) {
    store->FindSegment(id)->Append(epoch, entry, parts, durability, store->GetTimer());
}

void LocalEngine::Flush(const SegmentId& id) {
    store->FindSegment(id)->Flush();
}

void LocalEngine::Seal(const SegmentId& id, Epoch epoch, std::uint64_t count) {
    store->FindSegment(id)->Seal(epoch, count, store->GetSealer());
}

std::vector<ChunkEntry> LocalEngine::ReadEntries(const SegmentId& id) {
    return store->FindSegment(id)->ReadEntries();
}

void LocalEngine::ReadChunk(const SegmentId& id, const ChunkEntry& entry, IChunkSink& sink) {
    store->FindSegment(id)->ReadChunk(entry, sink);
}

void LocalEngine::RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t ringFront) {
    if (const auto space = store->FindTrack(id.track)) {
        space->RemoveSegment(id, epoch, ringFront, store->GetTimer());
    }
}

std::string LocalEngine::Describe(const SegmentId& id) {
    return store->Describe(id);
}

void LocalEngine::Verify(const SegmentId& id, std::uint32_t offset, IVerifyObserver& observer) {
    try {
        store->FindSegment(id)->Verify(offset, observer);
    } catch (const EngineError& error) {
        if (error.GetKind() != EngineError::Kind::Gone) {
            throw;
        }
    }
}

void LocalEngine::Notify(TrackId track, std::int64_t hint) noexcept {
    store->GetSignal().Notify(track, hint);
}

std::unique_ptr<IWatch> LocalEngine::Watch(TrackId track,
                                           std::function<void(std::int64_t)> callback) {
    return store->GetSignal().Watch(track, std::move(callback));
}

EngineCounters LocalEngine::GetCounters() {
    return store->GetFlushMeter().Get();
}

}  // namespace Brantel::Engine
