#pragma once

#include <libEngine/IEngine.h>
#include <libEngine/Local/LocalOptions.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

class IFileCalls;
class LocalStore;

// Keeps tracks in files of a local folder, which it alone uses. Docs/Formats.md shows the files,
// Docs/Promise.md what survives what. Thread-safe.
class LocalEngine : public IEngine {
  public:
    // Opens or makes the store. Throws EngineError: Refused for a folder that is in use, newer,
    // somebody else's or no store; Io, NoSpace. `calls` is borrowed; none: the system's.
    explicit LocalEngine(const LocalOptions& options, IFileCalls* calls = nullptr);
    // Flushes everything. What fails then is reported.
    ~LocalEngine() override;
    LocalEngine(const LocalEngine&) = delete;
    LocalEngine& operator=(const LocalEngine&) = delete;

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
    EngineCounters GetCounters() override;

  private:
    const std::unique_ptr<LocalStore> store;
};

}  // namespace Brantel::Engine
