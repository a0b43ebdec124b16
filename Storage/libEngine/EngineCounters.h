#pragma once

#include <libEngine/Distribution.h>

#include <array>
#include <cstdint>

namespace Brantel::Engine {

// What an engine has done since it was opened; it only grows. A value. An engine that has nothing
// to flush counts nothing.
struct EngineCounters {
    static constexpr std::array<std::uint64_t, 14> flushBounds{
        50'000,      100'000,     250'000,       500'000,      1'000'000,
        2'500'000,   5'000'000,   10'000'000,    25'000'000,   100'000'000,
        250'000'000, 500'000'000, 1'000'000'000, 5'000'000'000};
    static constexpr std::array<std::uint64_t, 11> groupBounds{1,  2,   4,   8,   16,  32,
                                                               64, 128, 256, 512, 1024};

    // How long the flushes of segments took that went well, in nanoseconds.
    Distribution<flushBounds.size()> flushNanoseconds{flushBounds, {}, 0};
    // How many writes each of them made safe: an append is one, and so is the start of a segment.
    Distribution<groupBounds.size()> flushedWrites{groupBounds, {}, 0};
    // Each of them ended its segment for writing.
    std::uint64_t failedFlushes = 0;
};

}  // namespace Brantel::Engine
