#pragma once

#include "Support/BlockedThread.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace Brantel::Tests {

// A handler that does nothing but end the system call that it interrupts.
class InterruptingSignal {
  public:
    explicit InterruptingSignal(int number) : number(number) {
        struct sigaction action {};
        action.sa_handler = [](int) { count.fetch_add(1); };
        count.store(0);
        ::sigaction(number, &action, &former);
    }
    ~InterruptingSignal() { ::sigaction(number, &former, nullptr); }
    InterruptingSignal(const InterruptingSignal&) = delete;
    InterruptingSignal& operator=(const InterruptingSignal&) = delete;

    // Interrupts the thread (by SIGUSR1) in that system call, and returns when its handler has run.
    static void Send(pthread_t thread, long id, long call) {
        const int before = count.load();
        WaitUntilBlockedIn(id, call);
        ::pthread_kill(thread, SIGUSR1);
        while (count.load() == before) {
            std::this_thread::yield();
        }
    }

    static inline std::atomic<int> count{0};

  private:
    int number;
    struct sigaction former {};
};

}  // namespace Brantel::Tests
