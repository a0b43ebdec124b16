#pragma once

#include "DamagedChunks.h"
#include "Protections.h"
#include "TableSet.h"
#include "TrackContext.h"
#include "TrackIndex.h"
#include "TrackRecord.h"
#include "TrackSettings.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace Brantel::Tracks {

// What everyone may ask of a track, and its lock. The lock is held for moments only: never while
// the engine is called. Whoever changes the logs holds the track's gate as well (TrackChanges), so
// that between two of its own looks nobody else has changed them.
struct TrackState {
    explicit TrackState(Engine::TrackId track) : index(track) {}

    // Looks into the index under the lock; `look` gets a TableSet, may run several times and
    // returns the answer. What it throws passes through.
    template <typename Look>
    auto Ask(const TrackContext& context, Look look) {
        TableSet tables(context.engine, context.cache, context.track, context.instance);
        for (;;) {
            {
                const std::lock_guard lock(mutex);
                auto answer = look(tables);
                if (!tables.IsMissing()) {
                    return answer;
                }
            }
            tables.LoadMissing();
        }
    }

    // Throws unless the track can be used: "Track 7 is being created" and the like. Under the lock.
    void CheckUsableLocked(Engine::TrackId track) const;

    // Bytes that protections keep from being recycled, as TrackStatus says. Under the lock.
    std::uint64_t GetHeldBytesLocked() const;

    DamagedChunks damaged;  // synchronised by itself
    std::mutex mutex;
    std::condition_variable appended;  // a chunk was appended, or whoever waits should look up
    // guarded by mutex
    TrackIndex index;
    Protections protections;
    std::map<std::string, std::string> properties;
    TrackSettings settings;
    TrackRecord::Phase phase = TrackRecord::Phase::Creating;
    std::string failure;  // why the track can't be used; empty: it can
    std::uint64_t capacity = 0;
    std::uint64_t openWorkers = 0;
    bool hasWriter = false;
    // Since the start.
    std::uint64_t appendedChunks = 0;
    std::uint64_t appendedBytes = 0;
    std::uint64_t recycledChunks = 0;
};

}  // namespace Brantel::Tracks
