#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// Spans of time in words: numbers with units, the larger units first, each unit once: 1h30m, 90s,
// 1.5s, 250ms, 2d12h. Units: w d h m s ms us ns ("µs" too). All spans in nanoseconds.
struct DurationText {
    // Exact: a fraction that is not a whole number of nanoseconds is refused, and so is what is
    // larger than 2^63 - 1 ns. Throws Misuse that names the text.
    static std::int64_t Parse(std::string_view text);

    // Not set when the text is no duration at all; throws Misuse when it is one out of bounds.
    static std::optional<std::int64_t> TryParse(std::string_view text);

    // Exact, in the form that Parse reads: "0s", "1h30m", "12.5s", "-40ms".
    static std::string Print(std::int64_t nanoseconds);

    // About three digits for a reader: "2 h 46 min", "12.4 s", "41 us".
    static std::string Round(std::int64_t nanoseconds);
};

}  // namespace Brantel::Tool
