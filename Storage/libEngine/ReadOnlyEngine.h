#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

// Shows what another engine (borrowed) holds to those who open a store as if to serve it, and lets
// none of them change it: what settles ownership or tidies up is answered as if it were done, what
// would store a chunk is Refused. Records go through: that engine keeps what is written apart from
// its store. Thread-safe.
class ReadOnlyEngine : public IEngine {
  public:
    explicit ReadOnlyEngine(IEngine& engine) : engine(engine) {}

    std::optional<Record> ReadRecord(const std::string& key) override;
    bool WriteRecords(std::span<const RecordChange> changes) override;
    std::vector<Record> ScanRecords(const std::string& prefix) override;
    std::vector<std::string> ListDamagedRecords() override;
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
    EngineCounters GetCounters() override { return engine.GetCounters(); }

  private:
    [[noreturn]] void Refuse(const SegmentId& id);

    IEngine& engine;
};

}  // namespace Brantel::Engine
