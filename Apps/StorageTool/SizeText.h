#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// Numbers of bytes in words: 4096, 500M, 500MB (both 500,000,000 bytes), 2TiB, 1.5GiB. Units: B and
// k M G T P E, with B (powers of 1000) or iB (powers of 1024); upper or lower case.
struct SizeText {
    // Exact; a fraction that is not a whole number of bytes is refused, and so is what is over
    // 2^63 - 1. Throws Misuse that names the text.
    static std::int64_t Parse(std::string_view text);

    // For a reader, with three digits: "1.50 GiB", "512 B".
    static std::string Print(std::int64_t bytes);

    // The same for bytes a second.
    static std::string PrintRate(double bytesPerSecond);
};

// Data rates in words: 8Mbit/s, 1.5MB/s, 25MiB/s; "/s" may be left out. A small b alone, as in 8Mb,
// is refused: nobody knows whether bits or bytes were meant.
struct RateText {
    // Bits a second. Throws Misuse that names the text.
    static std::int64_t Parse(std::string_view text);

    // "8.00 Mbit/s".
    static std::string Print(double bitsPerSecond);
};

}  // namespace Brantel::Tool
