#pragma once

#include <libEngine/IEngine.h>
#include <libEngine/LocalSignal.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

class MemorySegment;

// Keeps everything in memory: the model that other engines are tested against, and a store for
// trials. Nothing outlives it; what was stored is found again by whoever uses the same object
// next. Thread-safe.
class MemoryEngine : public IEngine {
  public:
    // `limit`: how many bytes can be reserved. They are taken from memory as chunks come.
    explicit MemoryEngine(std::uint64_t limit);
    ~MemoryEngine() override;
    MemoryEngine(const MemoryEngine&) = delete;
    MemoryEngine& operator=(const MemoryEngine&) = delete;

    std::optional<Record> ReadRecord(const std::string& key) override;
    bool WriteRecords(std::span<const RecordChange> changes) override;
    std::vector<Record> ScanRecords(const std::string& prefix) override;
    void Reserve(const Reservation& reservation, IProgress& progress) override;
    void Release(TrackId track, IProgress& progress) override;
    std::vector<Reservation> ListReservations() override;
    Space GetSpace() override;
    void CreateSegment(const SegmentId& id, Epoch epoch) override;
    std::vector<SegmentInfo> ListSegments(TrackId track) override;
    std::uint64_t GetRingFront(TrackId track) override;
    SegmentInfo Claim(const SegmentId& id, Epoch epoch) override;
    void Append(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                std::span<const std::string_view> parts, const Durability& durability) override;
    void AppendTaking(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                      std::span<const std::string_view> parts,
                      std::span<std::string* const> offered, const Durability& durability) override;
    void Flush(const SegmentId& id) override;
    void Seal(const SegmentId& id, Epoch epoch, std::uint64_t count) override;
    std::vector<ChunkEntry> ReadEntries(const SegmentId& id) override;
    void ReadChunk(const SegmentId& id, const ChunkEntry& entry, IChunkSink& sink) override;
    void RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t ringFront) override;
    std::string Describe(const SegmentId& id) override;
    void Verify(const SegmentId& id, std::uint32_t offset, IVerifyObserver& observer) override;
    void Notify(TrackId track, std::int64_t hint) noexcept override;
    std::unique_ptr<IWatch> Watch(TrackId track,
                                  std::function<void(std::int64_t)> callback) override;
    EngineCounters GetCounters() override { return {}; }

    // A second engine that holds what a crash at this instant would leave of this one.
    std::unique_ptr<MemoryEngine> Clone();

    // Damages a stored part, as a failing medium would.
    void FlipBit(const SegmentId& id, const ChunkEntry& entry, std::size_t part);

  private:
    std::shared_ptr<MemorySegment> Find(const SegmentId& id);
    std::uint64_t ReservedLocked() const;
    std::uint64_t SegmentsLocked(TrackId track) const;

    const std::uint64_t limit;
    LocalSignal signal;

    std::mutex mutex;
    // guarded by mutex
    std::uint64_t lastVersion = 0;
    std::map<std::string, Record> records;
    std::map<TrackId, Reservation> reservations;
    std::map<TrackId, std::uint64_t> ringFronts;
    // Shared with the readers that are in them when they are removed.
    std::map<SegmentId, std::shared_ptr<MemorySegment>> segments;
};

}  // namespace Brantel::Engine
