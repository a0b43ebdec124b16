#pragma once

#include "Context.h"

#include <libTime/TimePoint.h>

#include <cstdint>
#include <string>

namespace Brantel::Tool {

// A stretch of a track, of which a chunk is part whose time point lies in [in, out).
struct TrackRange {
    // A range as TimeRange reads it, or the whole track when the text is empty. What goes to the
    // end of the track goes over its last chunk, however long that is. Says on the standard error
    // what a range comes to. An empty track without a range is an empty stretch. Throws Misuse, and
    // std::runtime_error when there is no such track.
    static TrackRange Resolve(Context& context, std::int64_t track, const std::string& text);

    bool IsEmpty() const { return in >= out; }

    Time::TimePoint in;
    Time::TimePoint out;
};

}  // namespace Brantel::Tool
