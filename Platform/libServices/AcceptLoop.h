#pragma once

#include "ConnectionThreads.h"
#include "ListeningSocket.h"
#include "OwnedDescriptor.h"
#include "ServiceThread.h"

#include <poll.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <vector>

namespace Brantel::Services {

// The thread of a listener that accepts connections and joins the threads of those that ended.
class AcceptLoop {
  public:
    // Throws std::runtime_error when the system has no descriptor for it.
    AcceptLoop();
    AcceptLoop(const AcceptLoop&) = delete;
    AcceptLoop& operator=(const AcceptLoop&) = delete;
    // Stop has been called if Start succeeded.
    ~AcceptLoop() = default;

    // All are borrowed until Stop. Throws std::runtime_error when no thread can be started.
    void Start(const std::vector<ListeningSocket>& sockets, ConnectionThreads& connections,
               std::size_t stackSize, std::chrono::milliseconds acceptPause);

    // Makes the thread look for ended connections, and accept again if it pauses. Any thread.
    void Wake() const noexcept;

    // Ends the thread. Does nothing when it does not run.
    void Stop() noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    void Run();
    void Wait();
    void AcceptFrom(const ListeningSocket& socket);
    void Pause(int error);

    // Constant while the thread runs.
    OwnedDescriptor wake;
    const std::vector<ListeningSocket>* sockets = nullptr;
    ConnectionThreads* connections = nullptr;
    std::chrono::milliseconds acceptPause{0};
    std::optional<ServiceThread> thread;
    // Synchronised by itself.
    std::atomic<bool> stopping{false};
    // Used by the thread alone. The first watched descriptor is `wake`, then come the sockets.
    std::vector<pollfd> watched;
    std::optional<Clock::time_point> pausedUntil;
    bool pauseReported = false;
};

}  // namespace Brantel::Services
