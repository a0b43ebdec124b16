#pragma once

#include "ServerLog.h"
#include "ServerSignals.h"
#include "StopEvent.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Brantel::Server {

// Hears the signals of the process on a thread of its own, so that it ends when it is asked to,
// whatever it does:
//
// - while it starts, at once: nobody has been answered yet, and the next start finds the store as
//   after a crash of this one;
// - later in good order, by whoever calls Wait; but what has not ended `endLimit` after the signal
//   hangs and is left as it is. Nothing answered is lost by that: the system writes it.
//
// While it starts, the service manager is told again and again that it is still at work. Its
// functions are called by one thread.
class SignalWatch {
  public:
    static constexpr std::chrono::milliseconds endLimit{4000};

    // The log is borrowed. Throws std::system_error.
    SignalWatch(const ServerSignals& signals, ServerLog& log,
                std::chrono::milliseconds limit = endLimit);
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;
    ~SignalWatch();

    // The process has started.
    void Started();

    // Waits for the next signal: SIGHUP, or the first that asked for the end, then at once.
    int Wait();

  private:
    using Clock = std::chrono::steady_clock;

    void Run();
    int Pause();
    void Hear();
    void HearLocked(int signal);
    void Look();
    [[noreturn]] void EndLocked(LogLevel level, const char* reason, int exitCode);

    ServerLog& log;
    const std::chrono::milliseconds limit;
    const Clock::time_point start = Clock::now();
    const StopEvent stop;
    const int signals;
    std::mutex mutex;
    std::condition_variable heard;
    // Guarded by the mutex.
    bool hasStarted = false;
    bool reloads = false;
    int end = 0;  // the first signal that asked for it; 0: none yet
    Clock::time_point deadline;
    std::thread thread;
};

}  // namespace Brantel::Server
