#pragma once

#include "LogEvent.h"
#include "LogLine.h"
#include "LogOutput.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Brantel::Server {

// The lines of one log on their way to where they are written, by a thread of its own: whoever logs
// waits for nobody. Consecutive equal lines become one and a count, written with the next other
// line, or a second after the first repetition. When more than queueLimit bytes wait, lines are
// dropped and counted, which is said as soon as there is room. Thread-safe.
class LogStream {
  public:
    LogStream(std::unique_ptr<LogOutput> output, const LogLine::Style& style);
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;
    // Writes what waits, for LogOutput::farewell at most.
    ~LogStream();

    void Put(const LogEvent& event);
    // Waits until everything has been written that was put so far, or `longest`. False: it was not.
    bool WaitUntilWritten(std::chrono::milliseconds longest);
    // For the lines from now on.
    void SetStyle(const LogLine::Style& style);

    static constexpr std::size_t queueLimit = std::size_t{1} << 20U;
    static constexpr std::chrono::seconds repeatedFor{1};

  private:
    using Clock = std::chrono::steady_clock;

    // Those that end in Locked are called with the mutex held.
    void QueueLocked(const LogEvent& event, LogLine::Time time);
    void TellRepeatedLocked();
    void TellDroppedLocked();
    void AppendLocked(std::string line);
    void WaitLocked(std::unique_lock<std::mutex>& lock);
    std::string TakeLocked(std::uint64_t& lines);
    void Run();

    const std::unique_ptr<LogOutput> output;  // the thread's
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by the mutex.
    LogLine::Style style;
    std::deque<std::string> queue;
    std::size_t queuedBytes = 0;
    std::uint64_t dropped = 0;
    std::optional<LogEvent> last;
    std::uint64_t repeated = 0;
    Clock::time_point repeatedSince;
    bool writing = false;
    bool stopping = false;
    // Last, because it uses all others.
    std::thread thread;
};

}  // namespace Brantel::Server
