#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>

namespace Brantel::Tracks {

class EntryCache;
class TrackGeometry;
struct StorageOptions;

// What the parts of one track work with; constant, everything is borrowed from the storage.
struct TrackContext {
    Engine::IEngine& engine;
    EntryCache& cache;
    const StorageOptions& options;
    const TrackGeometry& geometry;
    Engine::Epoch epoch = 0;
    Engine::TrackId track = 0;
    std::uint64_t instance = 0;  // differs for each track that is created, also under an old id
    std::uint32_t segmentSize = 0;
};

}  // namespace Brantel::Tracks
