#include "Local/FlushTimer.h"

#include <utility>

namespace Brantel::Engine {

FlushTimer::~FlushTimer() {
    {
        const std::lock_guard lock(mutex);
        stopping = true;
        changed.notify_all();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void FlushTimer::Schedule(std::weak_ptr<IFlushTarget> target, std::chrono::milliseconds delay) {
    const std::lock_guard lock(mutex);
    if (idle == 0 && threads.size() < threadLimit) {
        threads.emplace_back([this] { Run(); });
    }
    const auto position = targets.emplace(Clock::now() + delay, std::move(target));
    if (position == targets.begin()) {
        changed.notify_one();
    }
}

std::size_t FlushTimer::CountWaiting() const {
    const std::lock_guard lock(mutex);
    return targets.size();
}

void FlushTimer::Run() {
    std::unique_lock lock(mutex);
    while (!stopping) {
        if (targets.empty()) {
            ++idle;
            changed.wait(lock);
            --idle;
            continue;
        }
        const auto first = targets.begin();
        const Clock::time_point due = first->first;
        if (due > Clock::now()) {
            ++idle;
            changed.wait_until(lock, due);
            --idle;
            continue;
        }
        const std::shared_ptr<IFlushTarget> target = first->second.lock();
        targets.erase(first);
        if (!targets.empty() && idle > 0) {
            changed.notify_one();
        }
        if (target) {
            lock.unlock();
            target->FlushNow();
            lock.lock();
        }
    }
}

}  // namespace Brantel::Engine
