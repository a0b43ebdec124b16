#include "ReadOnlyEngine.h"

#include "EngineError.h"

#include <utility>

namespace Brantel::Engine {

namespace {

void ReportDone(IProgress& progress) {
    progress.Report(0, 1);
    progress.Report(1, 1);
}

}  // namespace

void ReadOnlyEngine::Refuse(const SegmentId& id) {
    throw EngineError(EngineError::Kind::Refused,
                      engine.Describe(id) + ": the store is open for reading alone");
}

std::optional<Record> ReadOnlyEngine::ReadRecord(const std::string& key) {
    return engine.ReadRecord(key);
}

bool ReadOnlyEngine::WriteRecords(std::span<const RecordChange> changes) {
    return engine.WriteRecords(changes);
}

std::vector<Record> ReadOnlyEngine::ScanRecords(const std::string& prefix) {
    return engine.ScanRecords(prefix);
}

std::vector<std::string> ReadOnlyEngine::ListDamagedRecords() {
    return engine.ListDamagedRecords();
}

void ReadOnlyEngine::Reserve(const Reservation&, IProgress& progress) {
    ReportDone(progress);
}

void ReadOnlyEngine::Release(TrackId, IProgress& progress) {
    ReportDone(progress);
}

std::vector<Reservation> ReadOnlyEngine::ListReservations() {
    return engine.ListReservations();
}

Space ReadOnlyEngine::GetSpace() {
    return engine.GetSpace();
}

void ReadOnlyEngine::CreateSegment(const SegmentId& id, Epoch) {
    Refuse(id);
}

std::vector<SegmentInfo> ReadOnlyEngine::ListSegments(TrackId track) {
    return engine.ListSegments(track);
}

std::uint64_t ReadOnlyEngine::GetRingFront(TrackId track) {
    return engine.GetRingFront(track);
}

SegmentInfo ReadOnlyEngine::Claim(const SegmentId& id, Epoch epoch) {
    for (SegmentInfo& info : engine.ListSegments(id.track)) {
        if (info.id != id) {
            continue;
        }
        if (info.epoch > epoch) {
            throw EngineError(EngineError::Kind::Fenced,
                              engine.Describe(id) + ": epoch " + std::to_string(info.epoch) +
                                  " has taken over from " + std::to_string(epoch));
        }
        info.epoch = epoch;
        return info;
    }
    throw EngineError(EngineError::Kind::Gone, engine.Describe(id) + ": no such segment");
}

void ReadOnlyEngine::Append(const SegmentId& id, Epoch, const ChunkEntry&,
                            std::span<const std::string_view>, const Durability&) {
    Refuse(id);
}

void ReadOnlyEngine::Flush(const SegmentId&) {}

void ReadOnlyEngine::Seal(const SegmentId&, Epoch, std::uint64_t) {}

std::vector<ChunkEntry> ReadOnlyEngine::ReadEntries(const SegmentId& id) {
    return engine.ReadEntries(id);
}

void ReadOnlyEngine::ReadChunk(const SegmentId& id, const ChunkEntry& entry, IChunkSink& sink) {
    engine.ReadChunk(id, entry, sink);
}

void ReadOnlyEngine::RemoveSegment(const SegmentId&, Epoch, std::uint64_t) {}

std::string ReadOnlyEngine::Describe(const SegmentId& id) {
    return engine.Describe(id);
}

void ReadOnlyEngine::Verify(const SegmentId& id, std::uint32_t offset, IVerifyObserver& observer) {
    engine.Verify(id, offset, observer);
}

void ReadOnlyEngine::Notify(TrackId track, std::int64_t hint) noexcept {
    engine.Notify(track, hint);
}

std::unique_ptr<IWatch> ReadOnlyEngine::Watch(TrackId track,
                                              std::function<void(std::int64_t)> callback) {
    return engine.Watch(track, std::move(callback));
}

}  // namespace Brantel::Engine
