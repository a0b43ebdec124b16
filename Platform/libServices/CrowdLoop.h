#pragma once

#include "OwnedDescriptor.h"
#include "ServiceThread.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

namespace Brantel::Services {

// A thread that waits for many sockets at once, each of which belongs to somebody.
class CrowdLoop {
  public:
    // What the thread calls; neither throws.
    struct Calls {
        // When it starts.
        std::function<void()> adopt;
        // A socket has received something or is lost; again and again until that has been taken, or
        // the socket is left alone.
        std::function<void(CrowdLoop& loop, void* owner)> serve;
        // Each tryAgainAfter once AskAgain was called. False: there is nothing more to be tried.
        std::function<bool()> tryAgain;
    };
    static constexpr std::chrono::milliseconds tryAgainAfter{100};

    // Throws std::runtime_error when the system has no descriptors for it.
    explicit CrowdLoop(Calls calls);
    CrowdLoop(const CrowdLoop&) = delete;
    CrowdLoop& operator=(const CrowdLoop&) = delete;
    // Stops.
    ~CrowdLoop() { Stop(); }

    // Throws std::runtime_error when no thread can be started.
    void Start(std::size_t stackSize);

    // Watches the socket (borrowed, as its owner is) until LeaveAlone or its end. Any thread.
    // False: the system has no memory for it.
    bool Watch(int socket, void* owner) noexcept;
    // On the loop's thread.
    void LeaveAlone(int socket) noexcept;
    void AskAgain() noexcept;

    // Ends the thread: no call is made any more. Does nothing when it does not run.
    void Stop() noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    void Run();

    // Constant while the thread runs.
    const Calls calls;
    OwnedDescriptor poller;
    OwnedDescriptor wake;
    std::optional<ServiceThread> thread;
    // Synchronised by itself.
    std::atomic<bool> stopping{false};
    // The thread's.
    bool isAsking = false;
    Clock::time_point nextTry;
};

}  // namespace Brantel::Services
