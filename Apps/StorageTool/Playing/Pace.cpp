#include "Playing/Pace.h"

namespace Brantel::Tool {

std::chrono::nanoseconds Pace::Late(Time::TimePoint timePoint) {
    const auto now = Interrupts::Clock::now();
    if (!begin) {
        begin = Begin{now, timePoint};
    }
    const std::chrono::nanoseconds apart((timePoint - begin->timePoint).ToNanoseconds());
    return now - begin->clock - std::chrono::abs(apart);
}

bool Pace::Wait(Time::TimePoint timePoint) {
    const std::chrono::nanoseconds late = Late(timePoint);
    return late.count() >= 0 ? !interrupts.Requested() : interrupts.Sleep(-late);
}

}  // namespace Brantel::Tool
