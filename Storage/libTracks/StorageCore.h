#pragma once

#include "EntryCache.h"
#include "IdSource.h"
#include "Protections.h"
#include "StorageOptions.h"
#include "StorageStatus.h"
#include "TrackCommands.h"
#include "TrackGeometry.h"
#include "TrackRecord.h"
#include "TrackRegistry.h"
#include "Workers.h"

#include <libEngine/IEngine.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

namespace Brantel::Tracks {

// What all connections share. The objects of a connection work on its members; each of them is
// thread-safe by itself.
class StorageCore {
  public:
    // As Storage.
    StorageCore(Engine::IEngine& engine, StorageOptions options);
    ~StorageCore();
    StorageCore(const StorageCore&) = delete;
    StorageCore& operator=(const StorageCore&) = delete;

    void Stop();
    const std::atomic<bool>& IsStopping() const { return isStopping; }
    // Throws unless the track exists and can be used.
    std::shared_ptr<Track> GetTrack(std::int64_t id);
    StorageStatus GetStatus();

    const StorageOptions options;
    const TrackGeometry geometry;

  private:
    using Stretches = std::map<std::int64_t, Protections::Stretch>;  // by identifier

    // Makes up for lost records, before anything is read.
    Engine::IEngine& Repair(Engine::IEngine& given) const;
    Engine::Epoch NewestEpoch() const;
    Engine::Epoch TakeEpoch();
    void LoadTracks();
    void LoadTrack(std::int64_t id, const TrackRecord& record, const Stretches& protections);
    void SettleReservation(std::int64_t id, const TrackRecord& record);

    Engine::IEngine& engine;
    EntryCache cache;
    std::atomic<bool> isStopping = false;

  public:
    Workers workers;
    IdSource protectionIds;
    TrackRegistry tracks;
    TrackCommands commands;
};

}  // namespace Brantel::Tracks
