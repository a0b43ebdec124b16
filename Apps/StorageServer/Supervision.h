#pragma once

#include "ServerLog.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace Brantel::Server {

// Tells the service manager, while it exists, what the server does, and that it lives: but only
// after the storage has really answered. A storage that hangs, or fails, is not told of, so that
// the manager ends the server and starts it anew. Does nothing without a service manager.
class Supervision {
  public:
    struct Subject {
        // Asks the storage for something that it must know at once; throws what it throws.
        std::function<void()> ask;
        // A line for people.
        std::function<std::string()> status;
    };

    // The log is borrowed. `aliveInterval`: see ServiceManager.
    Supervision(ServerLog& log, Subject subject, std::chrono::microseconds aliveInterval);
    Supervision(const Supervision&) = delete;
    Supervision& operator=(const Supervision&) = delete;
    // Waits for the answer of the storage, should it be asked.
    ~Supervision();

    static constexpr std::chrono::seconds longestPause{5};

  private:
    void Run();
    void Look(std::string& told);

    ServerLog& log;
    const Subject subject;
    const bool isWatched;
    const std::chrono::microseconds pause;
    std::mutex mutex;
    std::condition_variable ended;
    bool ending = false;  // guarded by the mutex
    std::thread thread;
};

}  // namespace Brantel::Server
