#pragma once

#include <libEngine/IEngine.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <shared_mutex>

namespace Brantel::Engine {

// The signal of an engine that only one server uses: Notify calls the callbacks on its own thread.
// Thread-safe. Every watch must be destroyed before it.
class LocalSignal {
  public:
    void Notify(TrackId track, std::int64_t hint) noexcept;
    std::unique_ptr<IWatch> Watch(TrackId track, std::function<void(std::int64_t)> callback);

  private:
    class WatchOnTrack;

    std::atomic<std::size_t> watchCount = 0;  // read without the lock by Notify
    // Shared by those who notify: one of them that lost its processor to whom it has woken holds up
    // nobody but the beginning and the end of watches.
    std::shared_mutex mutex;
    std::multimap<TrackId, WatchOnTrack*> watches;  // guarded by mutex; borrowed
};

}  // namespace Brantel::Engine
