#pragma once

#include <sched.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Brantel::Tests {

// Long enough for any machine, however loaded; only a test that fails waits so long.
constexpr std::chrono::seconds patience{60};

// True as soon as the condition holds, false when it does not within `patience`.
template <typename Condition>
bool Eventually(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        sched_yield();
    }
    return true;
}

// Closed until somebody opens it; Wait answers whether it was opened within `patience`.
class Gate {
  public:
    void Open() {
        const std::lock_guard guard(mutex);
        isOpen = true;
        opened.notify_all();
    }
    bool Wait() {
        std::unique_lock lock(mutex);
        return opened.wait_for(lock, patience, [this] { return isOpen; });
    }

  private:
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
};

}  // namespace Brantel::Tests
