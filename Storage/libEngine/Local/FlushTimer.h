#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Brantel::Engine {

// Something that wants to be flushed later.
class IFlushTarget {
  public:
    virtual ~IFlushTarget() = default;

    // On a thread of the timer.
    virtual void FlushNow() noexcept = 0;
};

// Flushes what was written with a promised interval, several files at the same time. Its threads
// start with the first use and end with the object, which drops what is still to come. Thread-safe.
class FlushTimer {
  public:
    explicit FlushTimer(std::size_t threadLimit) : threadLimit(threadLimit) {}
    ~FlushTimer();
    FlushTimer(const FlushTimer&) = delete;
    FlushTimer& operator=(const FlushTimer&) = delete;

    // A target that has ended by then is left out.
    void Schedule(std::weak_ptr<IFlushTarget> target, std::chrono::milliseconds delay);
    // How many are still to come.
    std::size_t CountWaiting() const;

  private:
    using Clock = std::chrono::steady_clock;

    void Run();

    const std::size_t threadLimit;
    mutable std::mutex mutex;
    std::condition_variable changed;
    // guarded by mutex
    bool stopping = false;
    std::size_t idle = 0;  // threads that wait
    std::multimap<Clock::time_point, std::weak_ptr<IFlushTarget>> targets;
    std::vector<std::thread> threads;
};

}  // namespace Brantel::Engine
