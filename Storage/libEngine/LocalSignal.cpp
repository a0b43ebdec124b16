#include "LocalSignal.h"

#include <mutex>
#include <utility>

namespace Brantel::Engine {

class LocalSignal::WatchOnTrack : public IWatch {
  public:
    WatchOnTrack(LocalSignal& signal, TrackId track, std::function<void(std::int64_t)> callback)
        : signal(signal), callback(std::move(callback)) {
        const std::lock_guard lock(signal.mutex);
        position = signal.watches.emplace(track, this);
        signal.watchCount.fetch_add(1);
    }
    ~WatchOnTrack() override {
        const std::lock_guard lock(signal.mutex);
        signal.watches.erase(position);
        signal.watchCount.fetch_sub(1);
    }
    WatchOnTrack(const WatchOnTrack&) = delete;
    WatchOnTrack& operator=(const WatchOnTrack&) = delete;

    void Call(std::int64_t hint) { callback(hint); }

  private:
    LocalSignal& signal;
    const std::function<void(std::int64_t)> callback;
    std::multimap<TrackId, WatchOnTrack*>::iterator position;  // guarded by signal.mutex
};

void LocalSignal::Notify(TrackId track, std::int64_t hint) noexcept {
    // Sequentially consistent on both sides: a watcher that is missed here looks at the track after
    // it was counted, and what this signal is about was in place before.
    if (watchCount.load() == 0) {
        return;
    }
    const std::shared_lock lock(mutex);
    const auto [begin, end] = watches.equal_range(track);
    for (auto watch = begin; watch != end; ++watch) {
        watch->second->Call(hint);
    }
}

std::unique_ptr<IWatch> LocalSignal::Watch(TrackId track,
                                           std::function<void(std::int64_t)> callback) {
    return std::make_unique<WatchOnTrack>(*this, track, std::move(callback));
}

}  // namespace Brantel::Engine
