#pragma once

#include "LogEvent.h"
#include "LogOptions.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Server {

// One event as one line:
//
//     2026-11-21T17:26:05.123Z warning: connection 7 from /run/s.sock process 3 user 0: ClearTrack
//     of track 5 denied after 0.012 ms: Permission denied: ClearTrack needs role admin
//
// With a priority the line begins with "<4>" instead of time and level, which the journal notes
// itself. In JSON the same is an object: time, level, text, connection, peer, operation, outcome,
// track, duration_ms; what does not apply is left out.
class LogLine {
  public:
    struct Style {
        LogOptions::Format format = LogOptions::Format::Text;
        bool hasPriority = false;
    };
    using Time = std::chrono::system_clock::time_point;

    // With the final line feed. Whatever the texts hold, there is no other control character in it,
    // and it is valid UTF-8; of each text no more than textLimit bytes are shown.
    static std::string Format(const LogEvent& event, const Style& style, Time time);

    // "last line repeated 41 times"
    static LogEvent Repeated(LogLevel level, std::uint64_t times);
    static LogEvent Dropped(std::uint64_t lines);

    // What people can read without harm: a control character, a byte that is no UTF-8 and a
    // backslash become \n, \x1b, \\ and so on.
    static std::string Escape(std::string_view text);

    static constexpr std::size_t textLimit = 1024;
};

}  // namespace Brantel::Server
