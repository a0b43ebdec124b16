#pragma once

#include <libTime/TimePoint.h>

#include <StorageTool/Media/Rate.h>

#include <cstdint>

namespace Brantel::Tool {

// The time points of what comes at an even rate, without drift: each is computed from the start
// alone, start + floor(count * 1e9 * denominator / numerator) nanoseconds.
class RateClock {
  public:
    RateClock(Time::TimePoint start, Rate rate) : start(start), rate(rate) {}

    // When `count` of them have gone by. Throws std::runtime_error past the highest time point.
    Time::TimePoint At(std::uint64_t count) const;

  private:
    Time::TimePoint start;
    Rate rate;
};

}  // namespace Brantel::Tool
