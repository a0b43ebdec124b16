#pragma once

#include "Playing/ChunkWalk.h"
#include "Playing/TrackRange.h"

#include <libTime/TimePoint.h>

#include <cstdint>
#include <functional>

namespace Brantel::Tool {

// Finds the stretches that no chunk covers, by walking over time points and durations: no data
// block is read. Exact, also where chunks overlap.
class GapFinder {
  public:
    struct Gap {
        Time::TimePoint from;
        Time::TimePoint to;
    };
    struct Sums {
        std::int64_t chunks = 0;
        std::int64_t gaps = 0;
        // Nanoseconds.
        std::int64_t missing = 0;
        std::int64_t span = 0;
    };

    GapFinder(Context& context, std::int64_t track, TrackRange range);

    // Calls `report` for each gap at least so long, in order, and `progress` with the number of
    // chunks now and then.
    Sums Run(Time::TimePoint shortest, const std::function<void(const Gap&)>& report,
             const std::function<void(std::int64_t)>& progress);

  private:
    // Up to where the stretch is covered by a chunk that began before it; its begin if by none.
    Time::TimePoint CoveredFromBefore();

    Context& context;
    const std::int64_t track;
    const TrackRange range;
};

}  // namespace Brantel::Tool
