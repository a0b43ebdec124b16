#include "Local/LocalSegment.h"

#include "ChunkLayout.h"
#include "EngineError.h"
#include "Local/File.h"
#include "Local/FileCache.h"
#include "Local/Report.h"
#include "Local/SegmentScanner.h"
#include "Local/SegmentWriter.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Brantel::Engine {

using SegmentFormat::FooterState;
using SegmentFormat::HeaderState;

namespace {

// How often within the promised interval the medium is given to finish a flush.
constexpr int flushesPerInterval = 2;

SegmentInfo MakeInfo(const SegmentFormat::Identity& identity, const SegmentContent& content) {
    SegmentInfo info;
    info.id = identity.GetId();
    info.epoch = std::max(identity.epoch, content.epoch);
    info.count = content.count;
    info.end = content.end;
    info.durationSum = content.durationSum;
    info.first = content.first;
    info.last = content.last;
    return info;
}

SegmentInfo MakeInfo(const SegmentFormat::Footer& footer) {
    SegmentInfo info;
    info.id = footer.identity.GetId();
    info.epoch = footer.identity.epoch;
    info.sealed = true;
    info.count = footer.count;
    info.end = footer.end;
    info.durationSum = footer.durationSum;
    info.first = SegmentFormat::Unpack(footer.first);
    info.last = SegmentFormat::Unpack(footer.last);
    return info;
}

std::uint32_t EndOf(std::span<const SegmentFormat::Entry> packed) {
    return packed.empty() ? ChunkLayout::segmentHeaderSize
                          : packed.back().offset + packed.back().length;
}

}  // namespace

LocalSegment::LocalSegment(std::shared_ptr<SlotFile> slotFile, const SegmentFormat::Footer& footer,
                           const LocalReport& report, FlushMeter& meter)
    : slot(std::move(slotFile)),
      identity(footer.identity),
      stamp(identity.GetStamp()),
      report(report),
      gate(footer.end, meter),
      info(MakeInfo(footer)) {}

LocalSegment::LocalSegment(std::shared_ptr<SlotFile> slotFile,
                           const SegmentFormat::Identity& identity, SegmentContent content,
                           const LocalReport& report, FlushMeter& meter)
    : slot(std::move(slotFile)),
      identity(identity),
      stamp(identity.GetStamp()),
      report(report),
      gate(content.end, meter),
      info(MakeInfo(identity, content)),
      entries(std::move(content.entries)) {}

LocalSegment::~LocalSegment() = default;

std::string LocalSegment::Describe() const {
    return slot->GetPath() + (info.id.log == LogKind::Ring ? " (ring " : " (held ") +
           std::to_string(info.id.number) + ")";
}

void LocalSegment::Throw(EngineError::Kind kind, const std::string& text) const {
    throw EngineError(kind, Describe() + ": " + text);
}

void LocalSegment::CheckRemoved() const {
    if (removed) {
        Throw(EngineError::Kind::Gone, "the segment was removed");
    }
}

void LocalSegment::CheckEpochLocked(Epoch epoch) const {
    if (epoch < info.epoch) {
        Throw(EngineError::Kind::Fenced, "epoch " + std::to_string(info.epoch) +
                                             " has taken over from " + std::to_string(epoch));
    }
}

void LocalSegment::CheckEpoch(Epoch epoch) const {
    const std::lock_guard lock(mutex);
    CheckEpochLocked(epoch);
}

SegmentWriter& LocalSegment::GetWriter() {
    if (!writer) {
        std::shared_ptr<File> opened = slot->Open();
        const std::lock_guard lock(mutex);
        writer = std::make_unique<SegmentWriter>(opened, identity, info.end, ringFront);
        file = std::move(opened);
    }
    return *writer;
}

std::shared_ptr<File> LocalSegment::GetFile() const {
    {
        const std::lock_guard lock(mutex);
        if (file) {
            return file;
        }
    }
    return slot->Open();
}

void LocalSegment::SetPredecessor(std::shared_ptr<LocalSegment> segment) noexcept {
    const std::lock_guard lock(mutex);
    info.mayFollowLoss = true;
    predecessor = std::move(segment);
}

void LocalSegment::SetUnstarted() noexcept {
    SetPredecessor(nullptr);
    gate.ForgetFlushes(ChunkLayout::segmentHeaderSize);
}

void LocalSegment::WriteStart(bool isInUse) {
    const std::lock_guard writeLock(writeMutex);
    SegmentWriter& target = GetWriter();
    target.WriteHeader(identity, HeaderState::InUse, GetInfo().mayFollowLoss);
    gate.NoteWrite(ChunkLayout::segmentHeaderSize);
    if (isInUse) {
        gate.Flush(target.GetFile());
    }
    target.WriteFooter(MakeFooter({}, FooterState::Open), {});
    gate.NoteWrite(ChunkLayout::segmentHeaderSize);
}

bool LocalSegment::IsSafe() const {
    return gate.IsClean() && !GetInfo().mayFollowLoss;
}

void LocalSegment::MakeSafe() {
    try {
        Flush();
        return;
    } catch (const EngineError& error) {
        Tell(report, error.what());
    }
    try {
        SettleNow();  // which writes again what the failed flush covered
    } catch (const EngineError& error) {
        Tell(report, error.what());
    }
}

void LocalSegment::SettleFront() {
    std::shared_ptr<LocalSegment> before;
    {
        const std::lock_guard lock(mutex);
        if (!info.mayFollowLoss) {
            return;
        }
        before = predecessor;
    }
    if (before) {
        before->MakeSafe();  // the long part, for which nobody who writes here has to wait
    }
    const std::lock_guard writeLock(writeMutex);
    SettleFrontLocked();
}

// With writeMutex. Segments are locked from later ones to earlier ones.
void LocalSegment::SettleFrontLocked() {
    std::shared_ptr<LocalSegment> before;
    SegmentFormat::Identity current = identity;
    {
        const std::lock_guard lock(mutex);
        if (!info.mayFollowLoss) {
            return;
        }
        before = predecessor;
        current.epoch = info.epoch;
    }
    if (before) {
        before->MakeSafe();
    }
    if (!removed) {  // otherwise its slot may hold another segment by now
        GetWriter().WriteHeader(current, HeaderState::InUse);
        gate.NoteWrite(ChunkLayout::segmentHeaderSize);
    }
    const std::lock_guard lock(mutex);
    info.mayFollowLoss = false;
    predecessor.reset();
}

void LocalSegment::SetUnflushed(const char* reason) noexcept {
    gate.ForgetFlushes(ChunkLayout::segmentHeaderSize);
    gate.Fail(reason);
}

SegmentInfo LocalSegment::GetInfo() const {
    const std::lock_guard lock(mutex);
    return info;
}

SegmentInfo LocalSegment::Claim(Epoch newEpoch) {
    const std::lock_guard writeLock(writeMutex);
    CheckRemoved();
    SegmentInfo claimed;
    {
        const std::lock_guard lock(mutex);
        CheckEpochLocked(newEpoch);
        claimed = info;
    }
    if (claimed.epoch != newEpoch && !claimed.sealed) {
        SegmentFormat::Identity changed = identity;
        changed.epoch = newEpoch;
        GetWriter().WriteHeader(changed, HeaderState::InUse, claimed.mayFollowLoss);
        gate.NoteWrite(claimed.end);
    }
    claimed.epoch = newEpoch;
    const std::lock_guard lock(mutex);
    info.epoch = newEpoch;
    return claimed;
}

void LocalSegment::Append(Epoch epoch, const ChunkEntry& entry,
                          std::span<const std::string_view> parts, const Durability& durability,
                          FlushTimer& timer) {
    if (!ChunkLayout::HasLengths(entry, parts)) {
        Throw(EngineError::Kind::Refused, "lengths do not fit the parts of the chunk");
    }
    const std::lock_guard writeLock(writeMutex);
    CheckRemoved();
    PrepareAppend(epoch, entry);
    Write(epoch, entry, parts, durability);
    Publish(epoch, entry);
    if (durability.mode == Durability::Mode::Interval) {
        ScheduleFlush(durability, timer);
    }
}

void LocalSegment::PrepareAppend(Epoch epoch, const ChunkEntry& entry) {
    if (closed || gate.HasFailed()) {
        Throw(EngineError::Kind::Closed,
              "takes no more chunks after a failure: " + gate.GetReason());
    }
    const std::lock_guard lock(mutex);
    CheckEpochLocked(epoch);
    if (info.sealed) {
        Throw(EngineError::Kind::Closed, "the segment is sealed");
    }
    if (entry.offset != info.end) {
        Throw(EngineError::Kind::Refused, "a chunk at " + std::to_string(entry.offset) +
                                              " is not at the end, " + std::to_string(info.end));
    }
    const std::uint64_t taken = std::uint64_t{entry.offset} - ChunkLayout::segmentHeaderSize +
                                entry.length + (info.count + 1) * ChunkLayout::indexEntrySize;
    if (taken > ChunkLayout::Usable(identity.segmentSize)) {
        Throw(EngineError::Kind::NoSpace, "a chunk of " + std::to_string(entry.length) +
                                              " bytes does not fit behind " +
                                              std::to_string(entry.offset));
    }
    entries.ReserveOne();
}

void LocalSegment::Write(Epoch epoch, const ChunkEntry& entry,
                         std::span<const std::string_view> parts, const Durability& durability) {
    try {
        SegmentWriter& target = GetWriter();
        if (durability.mode == Durability::Mode::Always) {
            SettleFrontLocked();
        }
        target.Write(entry, parts, epoch, gate.GetFlushedEnd());
        gate.NoteWrite(target.GetEnd());
        if (durability.mode == Durability::Mode::Always) {
            gate.Flush(target.GetFile());
        }
    } catch (const EngineError& error) {
        if (error.GetKind() != EngineError::Kind::NoSpace) {
            closed = true;
            gate.Fail(error.what());
        }
        throw;
    }
}

void LocalSegment::Publish(Epoch epoch, const ChunkEntry& entry) noexcept {
    const std::lock_guard lock(mutex);
    entries.Add(entry);
    if (info.count == 0) {
        info.first = entry;
    }
    info.last = entry;
    info.epoch = epoch;
    ++info.count;
    info.end = entry.offset + entry.length;
    info.durationSum += static_cast<std::uint64_t>(entry.duration);
}

void LocalSegment::ScheduleFlush(const Durability& durability, FlushTimer& timer) {
    if (scheduled.exchange(true)) {
        return;
    }
    try {
        timer.Schedule(weak_from_this(), durability.interval / flushesPerInterval);
    } catch (const std::exception&) {
        // The promise holds without the timer.
        scheduled = false;
        SettleFrontLocked();
        gate.Flush(writer->GetFile());
    }
}

void LocalSegment::FlushNow() noexcept {
    // First, so that a chunk that comes from now on is scheduled again.
    scheduled = false;
    try {
        SettleNow();
        Flush();
    } catch (const std::exception& error) {
        if (!removed) {
            Tell(report, error.what());
        }
    }
}

void LocalSegment::Flush() {
    SettleFront();
    std::shared_ptr<File> target;
    {
        const std::lock_guard lock(mutex);
        target = file;
    }
    if (target) {
        gate.Flush(*target);
    }
}

SegmentFormat::Footer LocalSegment::MakeFooter(std::span<const SegmentFormat::Entry> packed,
                                               FooterState state) const {
    SegmentFormat::Footer footer;
    footer.state = state;
    footer.identity = identity;
    footer.identity.epoch = GetInfo().epoch;
    footer.count = packed.size();
    footer.end = EndOf(packed);
    for (const SegmentFormat::Entry& entry : packed) {
        footer.durationSum += static_cast<std::uint64_t>(entry.duration);
    }
    if (!packed.empty()) {
        footer.first = packed.front();
        footer.last = packed.back();
    }
    return footer;
}

void LocalSegment::Seal(Epoch epoch, std::uint64_t count, FlushTimer& sealer) {
    const std::lock_guard writeLock(writeMutex);
    CheckRemoved();
    std::vector<SegmentFormat::Entry> packed;
    {
        const std::lock_guard lock(mutex);
        CheckEpochLocked(epoch);
        if (count > info.count || (info.sealed && count != info.count)) {
            Throw(EngineError::Kind::Refused, "can't be sealed with " + std::to_string(count) +
                                                  " chunks, it has " + std::to_string(info.count));
        }
        if (info.sealed) {
            return;
        }
        packed = entries.Get(static_cast<std::size_t>(count));
    }
    if (!SettleLater(count, EndOf(packed), sealer)) {
        WriteSealed(packed);
    }
}

// Only what needs nothing but time: whatever failed or is to be voided is settled at once.
bool LocalSegment::SettleLater(std::uint64_t count, std::uint32_t end, FlushTimer& sealer) {
    constexpr std::size_t maxWaiting = 16;
    if (gate.IsClean() || gate.HasFailed() || closed || GetWriter().GetTouchedEnd() != end ||
        sealer.CountWaiting() >= maxWaiting) {
        return false;
    }
    {
        const std::lock_guard lock(mutex);
        if (count != info.count) {
            return false;
        }
        info.sealed = true;
        settling = true;
    }
    try {
        sealer.Schedule(weak_from_this(), std::chrono::milliseconds(0));
        return true;
    } catch (const std::exception&) {
        const std::lock_guard lock(mutex);
        info.sealed = false;
        settling = false;
        return false;
    }
}

void LocalSegment::SettleNow() {
    std::shared_ptr<File> target;
    {
        const std::lock_guard lock(mutex);
        if (!settling) {
            return;
        }
        target = file;
    }
    // The long part, for which nobody who writes or removes has to wait.
    SettleFront();
    FlushOrTell(*target);
    const std::lock_guard writeLock(writeMutex);
    std::vector<SegmentFormat::Entry> packed;
    {
        const std::lock_guard lock(mutex);
        if (!settling || removed) {
            return;
        }
        packed = entries.Get(entries.GetCount());
    }
    WriteSealed(packed);
}

// What fails is written again when the segment is sealed.
void LocalSegment::FlushOrTell(const File& target) {
    try {
        gate.Flush(target);
    } catch (const EngineError& error) {
        Tell(report, error.what());
    }
}

bool LocalSegment::IsIndexed() const {
    const std::lock_guard lock(mutex);
    return info.sealed && !settling;
}

void LocalSegment::WriteSealed(std::span<const SegmentFormat::Entry> packed) {
    SegmentWriter& target = GetWriter();
    if (!packed.empty()) {
        SettleFrontLocked();
    } else if (GetInfo().mayFollowLoss) {
        // What it held must be void before its header says that it was safe; it may have none yet.
        SegmentFormat::Identity current = identity;
        current.epoch = GetInfo().epoch;
        target.WriteHeader(current, HeaderState::InUse, true);
        gate.NoteWrite(ChunkLayout::segmentHeaderSize);
    }
    const std::uint32_t end = EndOf(packed);
    if (gate.HasFailed()) {
        // What a failed flush covered is safe only when it is written once more.
        closed = true;
        SegmentFormat::Identity current = identity;
        current.epoch = GetInfo().epoch;
        target.WriteHeader(current, HeaderState::InUse);
        target.WriteAgain(gate.GetFlushedEnd(), end);
        gate.Heal();
        gate.NoteWrite(end);
    }
    SegmentFormat::Footer footer = MakeFooter(packed, FooterState::Sealed);
    const bool cut = target.CutOff(end);
    const bool indexed = target.WriteIndex(packed, end, footer);
    if (cut || indexed) {
        gate.NoteWrite(end);
    }
    // The footer vouches for everything in front of it, so that comes first.
    gate.Flush(target.GetFile());
    target.WriteFooter(footer, packed);
    gate.NoteWrite(end);
    gate.Flush(target.GetFile());

    EntryLog released;
    const std::lock_guard lock(mutex);
    info = MakeInfo(footer);
    settling = false;
    std::swap(entries, released);
    file.reset();
    writer.reset();
}

void LocalSegment::SetRemoved() noexcept {
    const std::lock_guard writeLock(writeMutex);
    removed = true;
}

std::shared_ptr<File> LocalSegment::MarkRemoved(std::uint64_t front) noexcept {
    const std::lock_guard writeLock(writeMutex);
    removed = true;
    try {
        std::shared_ptr<File> target = GetFile();
        const SegmentWriter marker(target, identity, ChunkLayout::segmentHeaderSize,
                                   std::max(front, ringFront));
        marker.WriteHeader(identity, HeaderState::Free);
        if (!gate.IsClean()) {
            // The next segments of its log rely on it, or on that mark; and what the slot holds
            // next has a gate of its own, which must hear of each failure.
            gate.NoteWrite(ChunkLayout::segmentHeaderSize);
            gate.Flush(*target);
        }
        return target;
    } catch (const std::exception&) {
        // Not needed: a segment that comes back after a crash is removed again.
        return nullptr;
    }
}

void LocalSegment::Close() {
    const std::lock_guard writeLock(writeMutex);
    if (!writer || removed || closed) {
        return;
    }
    std::vector<SegmentFormat::Entry> packed;
    bool sealing = false;
    {
        const std::lock_guard lock(mutex);
        packed = entries.Get(entries.GetCount());
        sealing = settling;
    }
    if (sealing) {
        FlushOrTell(writer->GetFile());
        WriteSealed(packed);
        return;
    }
    SettleFrontLocked();
    gate.Flush(writer->GetFile());
    SegmentFormat::Footer footer = MakeFooter(packed, FooterState::Open);
    writer->WriteIndex(packed, footer.end, footer);
    writer->WriteFooter(footer, packed);
}

}  // namespace Brantel::Engine
