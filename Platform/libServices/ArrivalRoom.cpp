#include "ArrivalRoom.h"

#include <chrono>

namespace Brantel::Services {

bool ArrivalRoom::Take(std::uint64_t bytes, const std::function<bool()>& isOver, bool& waited) {
    // How soon a connection that waits here notices its end.
    constexpr std::chrono::milliseconds pause{100};
    std::unique_lock guard(mutex);
    waited = !waiters.empty() || size - taken < bytes;
    if (!waited) {
        taken += bytes;
        return true;
    }
    Waiter waiter;
    waiter.bytes = bytes;
    waiters.push_back(&waiter);
    while (!waiter.served) {
        waiter.wake.wait_for(guard, pause);
        if (!waiter.served && isOver()) {
            waiters.remove(&waiter);
            // It may have been the one that the others could not pass.
            ServeWaiters();
            return false;
        }
    }
    return true;
}

void ArrivalRoom::GiveBack(std::uint64_t bytes) noexcept {
    const std::lock_guard guard(mutex);
    taken -= bytes;
    ServeWaiters();
}

void ArrivalRoom::ServeWaiters() noexcept {
    while (!waiters.empty() && size - taken >= waiters.front()->bytes) {
        Waiter& first = *waiters.front();
        waiters.pop_front();
        taken += first.bytes;
        first.served = true;
        first.wake.notify_one();
    }
}

std::uint64_t ArrivalRoom::Taken() const {
    const std::lock_guard guard(mutex);
    return taken;
}

}  // namespace Brantel::Services
