#include "Support/LocalWorkload.h"

#include "Support/LocalStoreTest.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineError.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace Brantel::Engine {

namespace {

constexpr const char* recordKey = "workload";
constexpr std::int64_t tick = 100;
constexpr std::uint64_t otherOrdinal = 5;

std::uint64_t Mix(std::uint64_t value) {
    value ^= value >> 31U;
    value *= 0x9e3779b97f4a7c15U;
    value ^= value >> 29U;
    return value;
}

std::string Filled(std::size_t size, std::uint64_t seed) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<char>(seed + index * 7 + (index >> 8U));
    }
    return bytes;
}

ChunkEntry EntryOf(const std::vector<std::string>& parts, std::uint64_t ordinal) {
    const std::vector<std::string_view> views(parts.begin(), parts.end());
    ChunkEntry entry;
    entry.timePoint = static_cast<std::int64_t>(ordinal) * tick;
    entry.duration = tick;
    entry.ordinal = ordinal;
    ChunkLayout::SetLengths(entry, views);
    return entry;
}

std::vector<SegmentInfo> RingOf(IEngine& engine, TrackId track) {
    std::vector<SegmentInfo> ring = engine.ListSegments(track);
    std::erase_if(ring, [](const SegmentInfo& info) { return info.id.log != LogKind::Ring; });
    return ring;
}

void CheckChunk(IEngine& engine, const LocalWorkload::Settings& settings, const SegmentId& id,
                const ChunkEntry& entry, std::vector<std::string>& problems) {
    const std::string name = "chunk " + std::to_string(entry.ordinal);
    const std::vector<std::string> parts = WorkloadParts(settings, entry.ordinal);
    ChunkEntry expected = EntryOf(parts, entry.ordinal);
    expected.offset = entry.offset;
    expected.front = entry.front;
    if (entry != expected) {
        problems.push_back(name + " has another entry");
        return;
    }
    try {
        AllParts sink;
        engine.ReadChunk(id, entry, sink);
        if (sink.parts != parts) {
            problems.push_back(name + " has other bytes");
        }
    } catch (const EngineError& error) {
        problems.push_back(name + " can't be read: " + error.what());
    }
}

void CheckOther(IEngine& engine, const LocalWorkload::Settings& settings, const Answered& answered,
                std::vector<std::string>& problems) {
    if (answered.other == Answered::Other::InDoubt) {
        return;
    }
    const bool filled = answered.other == Answered::Other::Filled;
    const TrackId other = settings.track + 1;
    const Reservation wanted{other, settings.segmentSize, 2};
    const std::vector<Reservation> reservations = engine.ListReservations();
    const bool reserved =
        std::find(reservations.begin(), reservations.end(), wanted) != reservations.end();
    const std::vector<SegmentInfo> segments = engine.ListSegments(other);
    if (reserved != filled || segments.size() != (filled ? 1U : 0U)) {
        problems.push_back("the second track has " + std::to_string(segments.size()) +
                           " segments and " + (reserved ? "a" : "no") + " reservation");
        return;
    }
    for (const SegmentInfo& info : segments) {
        for (const ChunkEntry& entry : engine.ReadEntries(info.id)) {
            CheckChunk(engine, settings, info.id, entry, problems);
        }
        if (info.count != 1) {
            problems.push_back("the second track has " + std::to_string(info.count) + " chunks");
        }
    }
}

}  // namespace

std::vector<std::string> WorkloadParts(const LocalWorkload::Settings& settings,
                                       std::uint64_t ordinal) {
    const std::uint64_t seed = Mix(ordinal + 1);
    std::vector<std::string> parts{"chunk " + std::to_string(ordinal)};
    for (std::uint64_t part = 0; part < seed % 3; ++part) {
        const std::uint64_t mixed = Mix(seed + part);
        // Most are small, some large.
        const std::uint64_t limit = mixed % 4 == 0 ? settings.maxPart : settings.maxPart / 16;
        parts.push_back(Filled((mixed >> 8U) % (limit + 1), mixed));
    }
    return parts;
}

LocalWorkload::LocalWorkload(IEngine& engine, const Settings& settings, Epoch epoch,
                             std::uint64_t seed)
    : engine(engine), settings(settings), epoch(epoch), random(seed) {}

void LocalWorkload::Tell() {
    if (onChange) {
        onChange(answered);
    }
}

void LocalWorkload::Recover(const Answered& known) {
    answered = known;
    segments.clear();
    SilentProgress progress;
    engine.Reserve({settings.track, settings.segmentSize, settings.segments}, progress);
    const std::vector<SegmentInfo> ring = RingOf(engine, settings.track);
    for (const SegmentInfo& info : ring) {
        lastNumber = std::max(lastNumber, info.id.number);
        engine.Claim(info.id, epoch);
        const bool last = &info == &ring.back();
        if (!info.sealed && !last) {
            engine.Seal(info.id, epoch, info.count);
        }
        const bool dropped = info.count == 0 || info.last.ordinal < answered.front;
        if (dropped && !last) {
            engine.RemoveSegment(info.id, epoch, answered.front);
            continue;
        }
        segments.push_back(
            {info.id, info.count == 0 ? 0 : info.first.ordinal, info.count, info.end});
        if (info.count > 0) {
            answered.chunks = info.last.ordinal + 1;
        }
        if (last && info.sealed) {
            NextSegment();
        }
    }
    if (segments.empty()) {
        NextSegment();
    } else if (segments.back().count == 0) {
        segments.back().firstOrdinal = answered.chunks;
    }
    if (answered.chunks < known.chunks || (ring.empty() && known.front < known.chunks)) {
        throw std::runtime_error("ends with chunk " + std::to_string(answered.chunks) +
                                 ", answered were " + std::to_string(known.chunks));
    }
    answered.attempted = answered.chunks;
    answered.safe = answered.chunks;
    const std::optional<Record> record = engine.ReadRecord(recordKey);
    answered.record = record ? std::stoull(record->value) : 0;
    if (answered.record < known.record) {
        throw std::runtime_error("the record is " + std::to_string(answered.record) +
                                 ", answered was " + std::to_string(known.record));
    }
    // What failed may still be found done after a restart.
    answered.recordAttempted = std::max(known.recordAttempted, answered.record);
    if (answered.other == Answered::Other::InDoubt) {
        ReleaseOther();
    }
    Tell();
}

void LocalWorkload::NextSegment() {
    if (segments.size() >= settings.segments) {
        const Open oldest = segments.front();
        answered.front = std::max(answered.front, oldest.firstOrdinal + oldest.count);
        Tell();
        engine.RemoveSegment(oldest.id, epoch, answered.front);
        segments.pop_front();
    }
    const SegmentId id{settings.track, LogKind::Ring, ++lastNumber};
    engine.CreateSegment(id, epoch);
    segments.push_back({id, answered.chunks, 0, ChunkLayout::segmentHeaderSize});
}

void LocalWorkload::Step() {
    const std::uint64_t choice = random() % 64;
    if (choice < 4) {
        WriteRecord();
    } else if (choice == 4) {
        ChangeOther();
    } else {
        Append();
    }
}

void LocalWorkload::Append() {
    const std::vector<std::string> parts = WorkloadParts(settings, answered.chunks);
    ChunkEntry entry = EntryOf(parts, answered.chunks);
    const auto fits = [&] {
        const Open& open = segments.back();
        return open.end - ChunkLayout::segmentHeaderSize + ChunkLayout::Cost(entry.length) +
                   open.count * ChunkLayout::indexEntrySize <=
               ChunkLayout::Usable(settings.segmentSize);
    };
    if (!fits() || random() % settings.sealOneIn == 0) {
        engine.Seal(segments.back().id, epoch, segments.back().count);
        NextSegment();
    }
    entry.offset = segments.back().end;
    entry.front = answered.front;
    Durability durability = settings.durability;
    if (settings.mixDurability) {
        durability = {static_cast<Durability::Mode>(random() % 3), std::chrono::milliseconds(2)};
    }
    const std::vector<std::string_view> views(parts.begin(), parts.end());
    answered.attempted = answered.chunks + 1;
    Tell();
    engine.Append(segments.back().id, epoch, entry, views, durability);
    ++answered.chunks;
    if (durability.mode == Durability::Mode::Always) {
        answered.safe = answered.chunks;
    }
    ++segments.back().count;
    segments.back().end += entry.length;
    Tell();
}

void LocalWorkload::WriteRecord() {
    const std::vector<RecordChange> changes{{recordKey, std::to_string(answered.record + 1)}};
    answered.recordAttempted = answered.record + 1;
    Tell();
    engine.WriteRecords(changes);
    ++answered.record;
    Tell();
}

void LocalWorkload::ChangeOther() {
    if (answered.other != Answered::Other::None) {
        ReleaseOther();
        return;
    }
    const TrackId other = settings.track + 1;
    const SegmentId id{other, LogKind::Held, 1};
    answered.other = Answered::Other::InDoubt;
    Tell();
    SilentProgress progress;
    engine.Reserve({other, settings.segmentSize, 2}, progress);
    engine.CreateSegment(id, epoch);
    const std::vector<std::string> parts = WorkloadParts(settings, otherOrdinal);
    ChunkEntry entry = EntryOf(parts, otherOrdinal);
    entry.offset = ChunkLayout::segmentHeaderSize;
    const std::vector<std::string_view> views(parts.begin(), parts.end());
    engine.Append(id, epoch, entry, views, Durability{});
    answered.other = Answered::Other::Filled;
    Tell();
}

void LocalWorkload::ReleaseOther() {
    answered.other = Answered::Other::InDoubt;
    Tell();
    SilentProgress progress;
    engine.Release(settings.track + 1, progress);
    answered.other = Answered::Other::None;
    Tell();
}

std::vector<std::string> LocalWorkload::Check(IEngine& engine, const Settings& settings,
                                              const Answered& answered) {
    std::vector<std::string> problems;
    std::optional<std::uint64_t> next;
    for (const SegmentInfo& info : RingOf(engine, settings.track)) {
        const std::vector<ChunkEntry> entries = engine.ReadEntries(info.id);
        if (entries.size() != info.count) {
            problems.push_back("segment " + std::to_string(info.id.number) + " counts " +
                               std::to_string(info.count) + ", lists " +
                               std::to_string(entries.size()));
        }
        for (const ChunkEntry& entry : entries) {
            if (entry.ordinal < answered.front) {
                continue;  // dropped, may be anything but must not stop the others
            }
            if (next && entry.ordinal != *next) {
                problems.push_back("chunk " + std::to_string(entry.ordinal) + " follows on " +
                                   std::to_string(*next - 1));
            }
            if (!next && entry.ordinal > answered.front && entry.ordinal > 0) {
                problems.push_back("begins with chunk " + std::to_string(entry.ordinal) +
                                   " instead of " + std::to_string(answered.front));
            }
            next = entry.ordinal + 1;
            CheckChunk(engine, settings, info.id, entry, problems);
        }
    }
    if (engine.GetRingFront(settings.track) > answered.front) {
        problems.push_back(
            "the ring begins at " + std::to_string(engine.GetRingFront(settings.track)) +
            " as the engine says, at " + std::to_string(answered.front) + " as it was told");
    }
    const std::uint64_t end = next.value_or(answered.front);
    if (end < answered.chunks || end > std::max(answered.attempted, answered.chunks)) {
        problems.push_back("ends with chunk " + std::to_string(end) + ", answered were " +
                           std::to_string(answered.chunks) + ", attempted " +
                           std::to_string(answered.attempted));
    }
    const std::optional<Record> record = engine.ReadRecord(recordKey);
    const std::uint64_t value = record ? std::stoull(record->value) : 0;
    if (value < answered.record || value > std::max(answered.record, answered.recordAttempted)) {
        problems.push_back("the record is " + std::to_string(value) + ", answered was " +
                           std::to_string(answered.record));
    }
    CheckOther(engine, settings, answered, problems);
    return problems;
}

}  // namespace Brantel::Engine
