#pragma once

#include <libEngine/IEngine.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

// The operations of an engine that can be made to fail.
enum class Call : std::uint8_t {
    ReadRecord,
    WriteRecords,
    ScanRecords,
    Reserve,
    Release,
    GetSpace,
    CreateSegment,
    ListSegments,
    Claim,
    Append,
    Flush,
    Seal,
    ReadEntries,
    ReadChunk,
    RemoveSegment,
    Verify,
    Notify,
    Count  // how many there are
};

// A test double: passes everything on to another engine (borrowed), and fails, delays or loses what
// it was told to. Calls are counted from 1 for each operation. Thread-safe.
class FaultyEngine : public IEngine {
  public:
    enum class Fault {
        FailBefore,  // an error, and nothing was done
        FailAfter,   // done, but the answer is an error
        Lose,        // answered as done, but nothing was done (of what answers nothing)
    };

    explicit FaultyEngine(IEngine& inner) : inner(inner) {}

    // The n-th call from now on fails; `times` calls in a row, 0: for ever.
    void Inject(Call call, Fault fault, std::uint64_t n = 1, std::uint64_t times = 1,
                EngineError::Kind kind = EngineError::Kind::Io);
    // Runs `hook` on the caller's thread before each call of the operation: to hold it up, or to do
    // something else in between.
    void SetHook(Call call, std::function<void()> hook);
    // Ends all faults and hooks; what they broke stays broken, as on a medium that has recovered.
    void Heal();
    std::uint64_t CountCalls(Call call);

    std::optional<Record> ReadRecord(const std::string& key) override;
    bool WriteRecords(std::span<const RecordChange> changes) override;
    std::vector<Record> ScanRecords(const std::string& prefix) override;
    std::vector<std::string> ListDamagedRecords() override { return inner.ListDamagedRecords(); }
    void Reserve(const Reservation& reservation, IProgress& progress) override;
    void Release(TrackId track, IProgress& progress) override;
    std::vector<Reservation> ListReservations() override;
    Space GetSpace() override;
    void CreateSegment(const SegmentId& id, Epoch epoch) override;
    std::vector<SegmentInfo> ListSegments(TrackId track) override;
    std::uint64_t GetRingFront(TrackId track) override { return inner.GetRingFront(track); }
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
    EngineCounters GetCounters() override { return inner.GetCounters(); }

  private:
    struct Rule {
        Fault fault = Fault::FailBefore;
        std::uint64_t from = 0;  // number of the first call that fails
        std::uint64_t to = 0;    // behind the last one
        EngineError::Kind kind = EngineError::Kind::Io;
    };
    struct Operation {
        std::uint64_t calls = 0;
        std::vector<Rule> rules;
        std::function<void()> hook;
    };

    std::optional<Rule> Enter(Call call);
    [[noreturn]] static void Throw(Call call, const Rule& rule);
    template <typename Action>
    auto Run(Call call, Action action);

    IEngine& inner;
    std::mutex mutex;
    // guarded by mutex
    std::array<Operation, static_cast<std::size_t>(Call::Count)> operations;
    std::set<SegmentId> closed;  // where an append failed, until sealed or removed
};

}  // namespace Brantel::Engine
