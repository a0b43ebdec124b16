#include "StorageCore.h"

#include "FieldReader.h"
#include "FieldWriter.h"
#include "RecordKey.h"
#include "RecordRepair.h"
#include "Track.h"
#include "TrackRecord.h"
#include "Unheard.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

namespace {

constexpr std::uint8_t storeVersion = 1;
constexpr const char* storeKey = RecordRepair::storeKey;

// Gives a record that can't be read its name: nothing is known of the track that it belongs to.
template <typename Decode>
auto Read(const Engine::Record& record, Decode decode) {
    try {
        return decode(record.value);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("The store's record " + record.key +
                                 " can't be read: " + error.what());
    }
}

}  // namespace

StorageCore::StorageCore(Engine::IEngine& engine, StorageOptions givenOptions)
    : options(std::move(givenOptions)),
      geometry(options),
      engine(Repair(engine)),
      cache(options.entryCacheBytes),
      workers(options.clock, options.workersLimit),
      protectionIds(engine, IdSource::protectionIds),
      tracks(engine, cache, options, geometry, TakeEpoch()),
      commands(engine, tracks, options, geometry) {
    LoadTracks();
    commands.Start();
}

StorageCore::~StorageCore() {
    try {
        Stop();
    } catch (const std::exception&) {
        // Short of memory: nobody waits any more, and identifiers are skipped as after a crash.
        return;
    }
}

Engine::IEngine& StorageCore::Repair(Engine::IEngine& given) const {
    RecordRepair(given, geometry, options.log).Run();
    return given;
}

// A store whose records are those of an earlier copy has segments with newer epochs than its
// record.
Engine::Epoch StorageCore::NewestEpoch() const {
    Engine::Epoch newest = 0;
    for (const Engine::Reservation& reservation : engine.ListReservations()) {
        try {
            for (const Engine::SegmentInfo& info : engine.ListSegments(reservation.track)) {
                newest = std::max(newest, info.epoch);
            }
        } catch (const Engine::EngineError&) {
            // The track can't be loaded either, and says so then.
            continue;
        }
    }
    return newest;
}

// The record "store": version (1 byte), epoch (8 bytes).
Engine::Epoch StorageCore::TakeEpoch() {
    const std::optional<Engine::Record> record = engine.ReadRecord(storeKey);
    Engine::Epoch epoch = NewestEpoch();
    if (record) {
        FieldReader fields(record->value);
        if (const auto version = fields.Get<std::uint8_t>(); version != storeVersion) {
            throw std::runtime_error("The store has version " + std::to_string(version) +
                                     ", this server knows " + std::to_string(storeVersion));
        }
        epoch = std::max(epoch, fields.Get<Engine::Epoch>());
    }
    ++epoch;
    std::string bytes;
    FieldWriter fields(bytes);
    fields.Put(storeVersion);
    fields.Put(epoch);
    const std::vector<Engine::RecordChange> changes{
        {storeKey, bytes, record ? record->version : 0}};
    if (!engine.WriteRecords(changes)) {
        throw std::runtime_error("The store is being opened by another server");
    }
    return epoch;
}

void StorageCore::LoadTracks() {
    std::map<std::int64_t, Stretches> stretches;  // by track
    for (const Engine::Record& record : engine.ScanRecords(Protections::prefix)) {
        std::int64_t track = 0;
        const Protections::Stretch stretch = Read(record, [&track](const std::string& value) {
            return Protections::Decode(value, track);
        });
        stretches[track].emplace(NumberInKey(record.key, Protections::prefix), stretch);
    }
    for (const Engine::Record& record : engine.ScanRecords(TrackRecord::prefix)) {
        const std::int64_t id = NumberInKey(record.key, TrackRecord::prefix);
        LoadTrack(id, Read(record, TrackRecord::Decode), stretches[id]);
    }
}

void StorageCore::LoadTrack(std::int64_t id, const TrackRecord& record,
                            const Stretches& protections) {
    const std::shared_ptr<Track> track = tracks.Make(id, record.segmentSize);
    if (record.phase == TrackRecord::Phase::Ready) {
        SettleReservation(id, record);
        track->Load(record, protections);
    } else {
        track->StartNew(record);
    }
    tracks.Insert(track);
}

// A growth that was cut off may have left more than the capacity needs.
void StorageCore::SettleReservation(std::int64_t id, const TrackRecord& record) {
    try {
        Unheard progress;
        engine.Reserve(geometry.Reserve(id, record.capacity, record.segmentSize), progress);
    } catch (const std::exception& error) {
        options.log("Track " + std::to_string(id) +
                    ": its space could not be settled: " + error.what());
    }
}

void StorageCore::Stop() {
    isStopping = true;
    commands.Stop();
    for (const auto& track : tracks.List()) {
        track->WakeWaiting();
    }
    try {
        protectionIds.Settle();
    } catch (const std::exception& error) {
        options.log("some protection identifiers will be skipped: " + std::string(error.what()));
    }
}

StorageStatus StorageCore::GetStatus() {
    StorageStatus status;
    std::map<std::int64_t, std::int64_t> lastOf;  // time points by track
    for (const auto& track : tracks.List()) {
        status.tracks.push_back(track->GetStatus());
        lastOf[track->GetId()] = status.tracks.back().last;
    }
    status.workers = workers.GetStatus();
    for (WorkerStatus& worker : status.workers) {
        const auto last = lastOf.find(worker.track);
        if (worker.position >= 0 && last != lastOf.end() && last->second >= 0) {
            worker.lag = std::max<std::int64_t>(0, last->second - worker.position);
        }
    }
    status.commands = commands.GetStatus(status.commandCounts);
    try {
        status.space = engine.GetSpace();
        status.remainingSpace = commands.GetRemainingSpace();
    } catch (const Engine::EngineError&) {
        // That it is missing tells those who watch; everything else is still worth knowing.
        status.remainingSpace.reset();
    }
    status.engine = engine.GetCounters();
    status.damagedChunks = tracks.CountDamagedChunks();
    return status;
}

std::shared_ptr<Track> StorageCore::GetTrack(std::int64_t id) {
    std::shared_ptr<Track> track = tracks.Get(id);
    track->CheckUsable();
    return track;
}

}  // namespace Brantel::Tracks
