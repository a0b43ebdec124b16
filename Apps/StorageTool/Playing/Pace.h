#pragma once

#include "Interrupts.h"

#include <libTime/TimePoint.h>

#include <chrono>
#include <optional>

namespace Brantel::Tool {

// Lets time pass as it does between the chunks of a track. One thread.
class Pace {
  public:
    explicit Pace(const Interrupts& interrupts) : interrupts(interrupts) {}

    // Waits until it is this chunk's turn: as long after the first one as their time points are
    // apart, in either direction. False when the end was requested meanwhile.
    bool Wait(Time::TimePoint timePoint);

    // How long ago the turn of this chunk was; negative: it lies ahead.
    std::chrono::nanoseconds Late(Time::TimePoint timePoint);

  private:
    struct Begin {
        Interrupts::Clock::time_point clock;
        Time::TimePoint timePoint;
    };

    const Interrupts& interrupts;
    std::optional<Begin> begin;
};

}  // namespace Brantel::Tool
