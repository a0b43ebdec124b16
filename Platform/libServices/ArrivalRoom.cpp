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
    const auto waiter = waiters.emplace(waiters.end());
    waiter->bytes = bytes;
    while (!waiter->served) {
        waiter->wake.wait_for(guard, pause);
        if (!waiter->served && isOver()) {
            waiters.erase(waiter);
            // It may have been the one that the others could not pass.
            ServeWaiters();
            return false;
        }
    }
    waiters.erase(waiter);
    return true;
}

void ArrivalRoom::GiveBack(std::uint64_t bytes) noexcept {
    const std::lock_guard guard(mutex);
    taken -= bytes;
    ServeWaiters();
}

// Those that have been served leave the list by themselves.
void ArrivalRoom::ServeWaiters() noexcept {
    for (Waiter& waiter : waiters) {
        if (waiter.served) {
            continue;
        }
        if (size - taken < waiter.bytes) {
            return;
        }
        taken += waiter.bytes;
        waiter.served = true;
        waiter.wake.notify_one();
    }
}

std::uint64_t ArrivalRoom::Taken() const {
    const std::lock_guard guard(mutex);
    return taken;
}

}  // namespace Brantel::Services
