#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace Brantel::Tracks {

class EntryCache;
class Track;
class TrackGeometry;
struct StorageOptions;

// The tracks by their identifiers, those that are being created or deleted included. Thread-safe.
class TrackRegistry {
  public:
    // Tracks are shared by those who work on them while they are deleted.
    using TrackPointer = std::shared_ptr<Track>;

    // All borrowed.
    TrackRegistry(Engine::IEngine& engine, EntryCache& cache, const StorageOptions& options,
                  const TrackGeometry& geometry, Engine::Epoch epoch)
        : engine(engine), cache(cache), options(options), geometry(geometry), epoch(epoch) {}

    // A track that is not in the registry yet.
    TrackPointer Make(std::int64_t id, std::uint32_t segmentSize);

    // Throws "Track 7 does not exist".
    TrackPointer Get(std::int64_t id);
    // Null when there is none.
    TrackPointer Find(std::int64_t id);
    // False: the identifier is taken.
    bool Insert(const TrackPointer& track);
    void Erase(std::int64_t id);
    // In order of their identifiers.
    std::vector<TrackPointer> List();
    std::int64_t GetSmallestFreeId();
    // Of all tracks, those that were erased included.
    std::uint64_t CountDamagedChunks();

  private:
    Engine::IEngine& engine;
    EntryCache& cache;
    const StorageOptions& options;
    const TrackGeometry& geometry;
    const Engine::Epoch epoch;
    std::mutex mutex;
    // guarded by mutex
    std::uint64_t instances = 0;
    std::map<std::int64_t, TrackPointer> tracks;
    std::uint64_t erasedDamagedChunks = 0;  // of tracks that were erased
};

}  // namespace Brantel::Tracks
