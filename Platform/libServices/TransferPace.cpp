#include "TransferPace.h"

#include <algorithm>

namespace Brantel::Services {

namespace {

constexpr std::uint64_t millisecondsPerSecond = 1000;
// A message that is too slow is noticed at most so much later, as a part of the grace.
constexpr std::int64_t waitsPerGrace = 10;
constexpr std::int64_t shortestWait = 1;
constexpr std::int64_t longestWaitMilliseconds = 1000;

}  // namespace

TransferPace::TransferPace(std::uint64_t bytesPerSecond, std::chrono::milliseconds grace)
    : bytesPerSecond(bytesPerSecond), grace(grace) {
    if (bytesPerSecond > 0) {
        bytesPerGrace = std::max<std::uint64_t>(
            bytesPerSecond * static_cast<std::uint64_t>(grace.count()) / millisecondsPerSecond, 1);
        longestWait = static_cast<int>(std::clamp<std::int64_t>(
            grace.count() / waitsPerGrace, shortestWait, longestWaitMilliseconds));
    }
}

bool TransferPace::Keeps(std::size_t bytes) noexcept {
    if (!IsLimited()) {
        return true;
    }
    const Clock::time_point now = Clock::now();
    if (!running) {
        running = true;
        begin = now;
        moved = bytes;
        return true;
    }
    moved += bytes;
    if (moved >= bytesPerGrace) {
        begin = now;
        moved = 0;
        return true;
    }
    return now - begin <= grace;
}

}  // namespace Brantel::Services
