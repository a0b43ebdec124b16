#pragma once

#include "Local/EntryLog.h"
#include "Local/FlushGate.h"
#include "Local/FlushTimer.h"
#include "Local/LocalOptions.h"
#include "Local/SegmentFormat.h"

#include <libEngine/IEngine.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

class File;
class SegmentWriter;
class SlotFile;
struct SegmentContent;

// One segment in its slot. Thread-safe: those who write it take turns, also for the time of a
// flush; readers wait for none of them.
class LocalSegment : public IFlushTarget, public std::enable_shared_from_this<LocalSegment> {
  public:
    // A sealed one, as its footer tells. `report` and `meter` are borrowed.
    LocalSegment(std::shared_ptr<SlotFile> slot, const SegmentFormat::Footer& footer,
                 const LocalReport& report, FlushMeter& meter);
    // An open one, of which all is flushed.
    LocalSegment(std::shared_ptr<SlotFile> slot, const SegmentFormat::Identity& identity,
                 SegmentContent content, const LocalReport& report, FlushMeter& meter);
    ~LocalSegment() override;
    LocalSegment(const LocalSegment&) = delete;
    LocalSegment& operator=(const LocalSegment&) = delete;

    // What lies in front of it in its log may be lost with the power while `segment` (null: what
    // was in front is settled, or gone for good) is not safe. Before WriteStart.
    void SetPredecessor(std::shared_ptr<LocalSegment> segment) noexcept;
    // Its headers say that the ring begins there at least. Before anything is written.
    void SetRingFront(std::uint64_t ordinal) noexcept { ringFront = ordinal; }
    // Found without a header: it may follow a loss, and no chunk says that anything was flushed
    // before the header is.
    void SetUnstarted() noexcept;
    // It takes no more chunks, and what it holds is safe only when it is sealed.
    void SetUnflushed(const char* reason) noexcept;
    // Writes the start of a new segment over what the slot held. With `isInUse`, which says that
    // it is not safe that a former segment has ended, the header is flushed first.
    void WriteStart(bool isInUse);
    // Whether all that it holds, and all in front of it in its log, has been flushed.
    bool IsSafe() const;
    // Brings that about (blocks). Failures are told: what is in doubt then is never taken for lost.
    void MakeSafe();

    // As the operations of IEngine.
    SegmentInfo GetInfo() const;
    SegmentInfo Claim(Epoch newEpoch);
    void Append(Epoch writer, const ChunkEntry& entry, std::span<const std::string_view> parts,
                const Durability& durability, FlushTimer& timer);
    void Flush();
    // What was appended without a flush is flushed by `sealer`, and the segment is indexed then:
    // whoever goes on with the next segment does not wait for the medium.
    void Seal(Epoch writer, std::uint64_t count, FlushTimer& sealer);
    std::vector<ChunkEntry> ReadEntries() const;
    void ReadChunk(const ChunkEntry& entry, IChunkSink& sink) const;
    void Verify(std::uint32_t offset, IVerifyObserver& observer) const;

    // Throws Fenced when a newer epoch has claimed it.
    void CheckEpoch(Epoch writer) const;
    // From now on everything throws Gone.
    void SetRemoved() noexcept;
    // The same, and the file says so, and that the ring begins at `front` by now; that need not be
    // flushed yet. The answer is the file; null: it can't be written, so that the next start may
    // list the segment again. No flush for this segment touches the file from then on.
    std::shared_ptr<File> MarkRemoved(std::uint64_t front) noexcept;
    // Flushes an open segment and leaves an index of what it holds, so that the next start need
    // not read the chunks.
    void Close();

    void FlushNow() noexcept override;

    const std::shared_ptr<SlotFile>& GetSlot() const { return slot; }
    std::string Describe() const;

  private:
    [[noreturn]] void Throw(EngineError::Kind kind, const std::string& text) const;
    void CheckRemoved() const;
    void CheckEpochLocked(Epoch writer) const;
    void PrepareAppend(Epoch writer, const ChunkEntry& entry);
    void Write(Epoch writer, const ChunkEntry& entry, std::span<const std::string_view> parts,
               const Durability& durability);
    void Publish(Epoch writer, const ChunkEntry& entry) noexcept;
    void ScheduleFlush(const Durability& durability, FlushTimer& timer);
    SegmentWriter& GetWriter();
    std::shared_ptr<File> GetFile() const;
    void SettleFront();
    void SettleFrontLocked();
    bool SettleLater(std::uint64_t count, std::uint32_t end, FlushTimer& sealer);
    void SettleNow();
    void FlushOrTell(const File& target);
    void WriteSealed(std::span<const SegmentFormat::Entry> packed);
    bool IsIndexed() const;
    SegmentFormat::Footer MakeFooter(std::span<const SegmentFormat::Entry> packed,
                                     SegmentFormat::FooterState state) const;
    std::vector<ChunkEntry> ReadSealedEntries(const LocalReport& damage) const;
    void VerifyChunks(const std::vector<ChunkEntry>& entries, std::uint32_t offset,
                      IVerifyObserver& observer) const;

    const std::shared_ptr<SlotFile> slot;  // shared with the track's list of slots
    const SegmentFormat::Identity identity;
    const std::uint64_t stamp;
    const LocalReport& report;
    std::uint64_t ringFront = 0;  // constant once anything is written
    std::atomic<bool> removed = false;
    std::atomic<bool> scheduled = false;  // for a flush by the timer
    FlushGate gate;

    // Held by the one who writes. Taken before `mutex`.
    mutable std::mutex writeMutex;
    // guarded by writeMutex
    std::unique_ptr<SegmentWriter> writer;  // null until needed, and when sealed
    bool closed = false;                    // a write failed: takes no more chunks

    mutable std::mutex mutex;
    // guarded by mutex
    SegmentInfo info;
    bool settling = false;                      // sealed, but in the file still open
    std::shared_ptr<LocalSegment> predecessor;  // while info.mayFollowLoss; null: it is safe by now
    EntryLog entries;                           // until the file has the index
    std::shared_ptr<File> file;  // while there is a writer; shared with those who read and flush
};

}  // namespace Brantel::Engine
