#pragma once

#include "EntryCache.h"

#include <libEngine/IEngine.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

class EntryTable;

// The segment indexes that one operation looks into. They are looked up under the track's lock; one
// that would have to be read from the engine is only noted there, and read after the lock has been
// given up. Then the operation starts again from its beginning.
class TableSet {
  public:
    // All borrowed.
    TableSet(Engine::IEngine& engine, EntryCache& cache, Engine::TrackId track,
             std::uint64_t instance)
        : engine(engine), cache(cache), track(track), instance(instance) {}

    // Null, and noted as missing, when it is not in memory. Lives as long as this object.
    const EntryTable* Find(Engine::LogKind log, std::uint64_t segment);

    bool IsMissing() const { return missing.has_value(); }

    // Reads the missing one: without a lock. A segment that has gone meanwhile is not an error: the
    // operation finds out when it looks again.
    void LoadMissing();

  private:
    Engine::IEngine& engine;
    EntryCache& cache;
    const Engine::TrackId track;
    const std::uint64_t instance;
    std::vector<std::pair<EntryCache::Key, EntryCache::Table>> tables;
    std::optional<EntryCache::Key> missing;
    std::optional<EntryCache::Key> gone;
};

}  // namespace Brantel::Tracks
