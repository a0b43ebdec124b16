#include "StoreRecovery.h"

#include "EncodedChunk.h"
#include "Protections.h"
#include "RecordKey.h"
#include "RecordRepair.h"
#include "StorageCore.h"
#include "Track.h"
#include "Unheard.h"

#include <exception>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

namespace {

constexpr const char* unfinishedKey = "recovery";

// A track is packed anew into segments that may end at other chunks, and one of them stays free.
StorageOptions TargetOptions() {
    constexpr std::uint64_t moreSegments = 2;
    StorageOptions options;
    options.spareSegments += moreSegments;
    return options;
}

void Write(Engine::IEngine& engine, const std::vector<Engine::RecordChange>& changes) {
    if (!engine.WriteRecords(changes)) {
        throw std::runtime_error("the store is used by somebody else");
    }
}

// What is wrong with the record of a track or a protection; empty: nothing.
std::string FaultOf(const Engine::Record& record) {
    try {
        if (record.key.starts_with(TrackRecord::prefix)) {
            NumberInKey(record.key, TrackRecord::prefix);
            TrackRecord::Decode(record.value);
            return {};
        }
        std::int64_t track = 0;
        const Protections::Stretch stretch = Protections::Decode(record.value, track);
        const std::string fault =
            Protections::DescribeFault(NumberInKey(record.key, Protections::prefix), stretch);
        return fault.empty() ? fault : "Track " + std::to_string(track) + ": " + fault;
    } catch (const std::runtime_error& error) {
        return "The store's record " + record.key + " can't be read: " + error.what();
    }
}

}  // namespace

void StoreRecovery::CheckFinished(Engine::IEngine& engine) {
    if (engine.ReadRecord(unfinishedKey)) {
        throw std::runtime_error(
            "The store is what a recovery that was cut off has left: remove it and recover again");
    }
}

StoreRecovery::Sums StoreRecovery::Run() {
    const StorageOptions options;
    const TrackGeometry geometry(options);
    CheckFinished(source);
    LeaveOutRecords();
    RecordRepair(source, geometry, [this](const std::string& text) { findings.Add(text); }).Run();
    StorageCore from(source, options);
    CopyRecords(from);
    {
        StorageCore to(target, TargetOptions());
        for (const auto& track : from.tracks.List()) {
            if (const auto copy = to.tracks.Find(track->GetId())) {
                CopyTrack(*track, *copy);
            }
        }
    }
    Finish();
    return sums;
}

void StoreRecovery::LeaveOutRecords() {
    std::vector<Engine::RecordChange> changes;
    for (const char* prefix : {TrackRecord::prefix, Protections::prefix}) {
        for (const Engine::Record& record : source.ScanRecords(prefix)) {
            const std::string fault = FaultOf(record);
            if (!fault.empty()) {
                findings.Add(fault + "; it is left out");
                changes.push_back({record.key, std::nullopt});
            }
        }
    }
    if (!changes.empty()) {
        Write(source, changes);
    }
}

void StoreRecovery::CopyRecords(StorageCore& from) {
    std::vector<Engine::RecordChange> changes{{unfinishedKey, "1"}};
    std::set<std::string> left{RecordRepair::storeKey, unfinishedKey};
    for (const auto& track : from.tracks.List()) {
        const std::string key = TrackRecord::Key(track->GetId());
        const std::optional<Engine::Record> stored = source.ReadRecord(key);
        if (!stored || !track->IsReady()) {
            left.insert(Track::PropertiesKey(track->GetId()));
            continue;
        }
        const TrackRecord found = TrackRecord::Decode(stored->value);
        TrackRecord record;
        record.phase = TrackRecord::Phase::Ready;
        record.capacity = found.capacity;
        record.segmentSize = found.segmentSize;
        changes.push_back({key, record.Encode()});
        // Nothing may make room for what comes while it is copied, and one flush at the end is
        // enough.
        const std::string propertiesKey = Track::PropertiesKey(track->GetId());
        changes.push_back({propertiesKey, Track::EncodeProperties({{"storage.retention", "stop"},
                                                                   {"storage.durability", "os"}})});
        const std::optional<Engine::Record> whole = source.ReadRecord(propertiesKey);
        properties[propertiesKey] = whole ? whole->value : std::string();
    }
    for (Engine::Record& record : source.ScanRecords("")) {
        if (!left.contains(record.key) && !record.key.starts_with(TrackRecord::prefix) &&
            !record.key.starts_with(Track::propertiesPrefix)) {
            changes.push_back({std::move(record.key), std::move(record.value)});
        }
    }
    Write(target, changes);
    const TrackGeometry geometry(TargetOptions());
    for (const auto& track : from.tracks.List()) {
        if (const auto stored = target.ReadRecord(TrackRecord::Key(track->GetId()))) {
            const TrackRecord record = TrackRecord::Decode(stored->value);
            Unheard progress;
            target.Reserve(geometry.Reserve(track->GetId(), record.capacity, record.segmentSize),
                           progress);
        }
    }
}

void StoreRecovery::CopyTrack(Track& from, Track& to) {
    ++sums.tracks;
    EncodedChunk encoded;
    std::int64_t position = -1;
    while (FindNext(from, position)) {
        CopyChunk(from, to, position, encoded);
    }
}

bool StoreRecovery::FindNext(Track& from, std::int64_t& position) {
    try {
        position = from.GetNextTimePoint(position);
        return position >= 0;
    } catch (const std::runtime_error& error) {
        findings.Add(error.what() + (position < 0 ? std::string("; nothing of it is copied")
                                                  : "; nothing of it is copied from " +
                                                        std::to_string(position) + " on"));
        return false;
    }
}

void StoreRecovery::CopyChunk(Track& from, Track& to, std::int64_t position,
                              EncodedChunk& encoded) {
    Protocol::Chunk chunk;
    std::uint64_t payload = 0;
    try {
        if (!from.GetChunk(position, {}, chunk, payload)) {
            throw std::runtime_error("Track " + std::to_string(from.GetId()) + ": the chunk at " +
                                     std::to_string(position) + " is not found again");
        }
    } catch (const std::runtime_error& error) {
        findings.Add(error.what());
        ++sums.damaged;
        return;
    }
    encoded.Encode(to.GetId(), chunk);
    to.Append(encoded);
    ++sums.chunks;
    sums.bytes += payload;
}

void StoreRecovery::Finish() {
    for (const Engine::Reservation& reservation : target.ListReservations()) {
        for (const Engine::SegmentInfo& info : target.ListSegments(reservation.track)) {
            target.Flush(info.id);
        }
    }
    std::vector<Engine::RecordChange> changes{{unfinishedKey, std::nullopt}};
    for (const auto& [key, value] : properties) {
        changes.push_back({key, value.empty() ? std::nullopt : std::optional(value)});
    }
    Write(target, changes);
}

}  // namespace Brantel::Tracks
