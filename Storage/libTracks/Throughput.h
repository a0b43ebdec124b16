#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace Brantel::Tracks {

// Bytes per second over the last few seconds. One thread adds, any thread asks.
class Throughput {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::int64_t windowSeconds = 4;

    explicit Throughput(TimePoint start) : start(start) {}

    void Add(TimePoint now, std::uint64_t bytes);
    // What was added during the whole seconds of the window and the one that runs, by the time that
    // they make; while the whole is younger than a second, as if it were one second old.
    std::uint64_t GetBytesPerSecond(TimePoint now) const;

  private:
    struct Second {
        std::atomic<std::int64_t> number = -1;  // counted from the start
        std::atomic<std::uint64_t> bytes = 0;
    };

    const TimePoint start;
    std::array<Second, windowSeconds + 2> seconds;
};

}  // namespace Brantel::Tracks
