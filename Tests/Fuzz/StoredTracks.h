#pragma once

#include "Support/FuzzCheck.h"

#include <libEngine/IEngine.h>
#include <libTracks/Storage.h>
#include <libTracks/StorageOptions.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace Brantel::Tests {

// Chunks, serialised, by track and time point.
using StoredChunks = std::map<std::pair<std::int64_t, std::int64_t>, std::string>;

// What a storage was given, to know what it may serve.
struct KnownTracks {
    StoredChunks chunks;  // also those that were recycled
    // Every value that a property had, by track and key.
    std::map<std::pair<std::int64_t, std::string>, std::set<std::string>> properties;
};

// Whether it succeeds; a failure must have a reason, and no other exception may come.
template <class Work>
bool Try(Work work) {
    try {
        work();
        return true;
    } catch (const std::runtime_error& failure) {
        Require(*failure.what() != '\0', "a failure has a reason");
        return false;
    }
}

// For tracks of a few segments of the smallest size.
Tracks::StorageOptions SmallStorage();

// Makes tracks in an empty engine: full, held in part, empty, deleted, with properties.
// `whileOpen` is called before writers and storage are closed.
KnownTracks FillStorage(Engine::IEngine& engine, const std::function<void()>& whileOpen);

// Reads everything in every way. What is served must be known, when `known` tells.
void ReadStorage(Tracks::Storage& storage, const KnownTracks* known);

// Appends, protects, removes protections and sets properties, where the storage lets it. Returns
// the chunks that it took, which are entered in `known`.
StoredChunks ChangeStorage(Tracks::Storage& storage, KnownTracks& known);

// The chunks must be there.
void RequireChunks(Tracks::Storage& storage, const StoredChunks& chunks);

}  // namespace Brantel::Tests
