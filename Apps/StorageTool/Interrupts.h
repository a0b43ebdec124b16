#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace Brantel::Tool {

// How a program is asked to end, and what keeps it from waiting for ever. A thread of its own takes
// SIGINT, SIGTERM, SIGHUP and SIGQUIT: the first one is a request, which whoever works asks for
// between two steps; a second one ends the process at once. Calls to a server cannot be cut off
// from outside, so the process also ends when a call takes longer than the limit, or goes on for
// `grace` after a request. Whatever the end, the last words are said and the terminal is restored.
// Made before any other thread; thread-safe.
class Interrupts {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds grace{3};

    // `callLimit`: how long a call may take; 0: without limit.
    explicit Interrupts(std::chrono::nanoseconds callLimit);
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;
    ~Interrupts();

    bool Requested() const { return requested.load(std::memory_order_acquire); }
    // Readable from the request on: for poll, beside what is waited for.
    int Descriptor() const { return requestDescriptor; }
    // True after this time, false when the end was requested before.
    bool Sleep(std::chrono::nanoseconds time) const;

    // As long as it lives, a call is under way on the thread that made it.
    class Call {
      public:
        explicit Call(Interrupts& interrupts);
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        ~Call();

      private:
        Interrupts& interrupts;
        std::list<Clock::time_point>::iterator entry;
    };

    // As long as it lives, calls of the system on the thread that made it come back with EINTR,
    // again and again, once the end was requested.
    class Waiting {
      public:
        explicit Waiting(Interrupts& interrupts);
        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;
        ~Waiting();

      private:
        Interrupts& interrupts;
        std::list<pthread_t>::iterator entry;
    };

    // Of what is called, for the message when it takes too long.
    void SetName(const std::string& callee);
    // What is said when the process ends with a call under way: how far the work got. Called on
    // the thread of this object; may be empty.
    void SetLastWords(std::function<std::string()> words);
    // What brings the terminal back before the process ends; may be empty.
    void SetRestore(std::function<void()> restoration);

  private:
    void Run();
    void TakeSignal();
    void CheckCalls();
    void WakeWaiting();
    [[noreturn]] void EndNow(const std::string& reason);

    const std::chrono::nanoseconds callLimit;
    int signalDescriptor = -1;
    int requestDescriptor = -1;
    int endDescriptor = -1;

    std::atomic<bool> requested = false;

    // Guards what follows.
    std::mutex mutex;
    std::string name = "The server";
    Clock::time_point requestTime;
    std::list<Clock::time_point> calls;
    std::list<pthread_t> waiting;
    std::function<std::string()> lastWords;
    std::function<void()> restore;

    std::thread thread;
};

}  // namespace Brantel::Tool
