#include "Playing/TrackRange.h"

#include "TimeText.h"

#include <algorithm>

namespace Brantel::Tool {

using Time::TimePoint;

TrackRange TrackRange::Resolve(Context& context, std::int64_t track, const std::string& text) {
    const TimeBounds bounds = context.BoundsOf(track);
    const bool isEmpty = bounds.start < TimePoint();
    // The last chunk may have no duration and then lie at the end itself.
    const TimePoint behind = isEmpty ? TimePoint() : bounds.end + TimePoint::Nanoseconds(1);
    if (text.empty()) {
        return {isEmpty ? TimePoint() : bounds.start, behind};
    }
    const TimeRange range = TimeRange::Parse(text);
    const TimeRange::Resolved resolved = range.Resolve(bounds);
    const bool toTheEnd = range.to.base == TimeText::Base::End && range.to.offset == 0;
    context.Note("Track " + std::to_string(track) + ": " + context.TimeOf(resolved.in) + " .. " +
                 context.TimeOf(resolved.out));
    return {std::max(resolved.in, TimePoint()), toTheEnd ? behind : resolved.out};
}

}  // namespace Brantel::Tool
