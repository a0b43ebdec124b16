#pragma once

#include <libTime/TimePoint.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tool {

enum class TimeFormat : std::uint8_t { Auto, Rfc3339, Seconds, Nanoseconds };

// What the words now, start and end stand for. Start and end of an empty track are -1 ns.
struct TimeBounds {
    Time::TimePoint now;
    Time::TimePoint start;
    Time::TimePoint end;

    // With the system's clock.
    static TimeBounds FromNow(Time::TimePoint start, Time::TimePoint end);
};

// A time point as a user writes it: absolute, or an offset from now, start or end of a track.
//
//     now  start  end               and with an offset: now-90s  start+1h  end-10s
//     -90s                          so long before now
//     1h30m                         so long after zero, for tracks that count from there
//     2024-05-01T12:30:00.25Z       RFC 3339 with up to 9 digits; Z, an offset as +02:00, or
//                                   nothing, which is UTC; a blank for the T
//     2024-05-01                    midnight, UTC
//     1714566600                    unix time: 10 digits s, 13 ms, 16 us, 19 ns; 0 is zero
//     12.500000000                  seconds since zero
//     12:500000000                  seconds and nanoseconds since zero
//
// All arithmetic is exact; what leaves the 64-bit range of nanoseconds is refused. A value.
struct TimeText {
    enum class Base : std::uint8_t { Zero, Now, Start, End };

    // Throws Misuse that names the text.
    static TimeText Parse(std::string_view text);

    // Throws std::runtime_error when the track is empty and the text needs its start or end.
    Time::TimePoint Resolve(const TimeBounds& bounds) const;

    // Exact in every format, and read back by Parse but for Nanoseconds, which is the bare count.
    // Auto: RFC 3339 (UTC) from the year 2000 to 2199, otherwise seconds.
    static std::string Print(Time::TimePoint timePoint, TimeFormat format);

    Base base = Base::Zero;
    // Nanoseconds.
    std::int64_t offset = 0;
};

// A stretch of time as a user writes it: A..B, A.. (to the end), ..B (from the start), A+DURATION,
// or [A_B), each from A until before B.
struct TimeRange {
    struct Resolved {
        Time::TimePoint in;
        Time::TimePoint out;
    };

    // Throws Misuse that names the text.
    static TimeRange Parse(const std::string& text);

    // Throws std::runtime_error as TimeText does, and when it ends before it begins.
    Resolved Resolve(const TimeBounds& bounds) const;

    TimeText from{TimeText::Base::Start, 0};
    TimeText to{TimeText::Base::End, 0};
};

}  // namespace Brantel::Tool
