#include "TransferPace.h"

#include "ArrivalRoom.h"

#include <algorithm>

namespace Brantel::Services {

namespace {

constexpr std::uint64_t millisecondsPerSecond = 1000;
// A message that is too slow is noticed at most so much later, as a part of the grace.
constexpr std::int64_t waitsPerGrace = 10;
// While others wait for the room.
constexpr std::uint64_t stretchesPerRoom = 10;
constexpr std::int64_t stretchesPerGrace = 5;
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
    if (!KeepsForOthers(now, bytes)) {
        return false;
    }
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

std::uint64_t TransferPace::ShareOfRoom() const {
    return kept / stretchesPerRoom;
}

bool TransferPace::KeepsForOthers(Clock::time_point now, std::size_t bytes) noexcept {
    if (kept == 0 || !room->IsAwaited()) {
        awaited = false;
        return true;
    }
    awaitedMoved = awaited ? awaitedMoved + bytes : 0;
    if (!awaited || awaitedMoved >= ShareOfRoom()) {
        awaited = true;
        awaitedBegin = now;
        awaitedMoved = 0;
        return true;
    }
    return now - awaitedBegin <= grace / stretchesPerGrace;
}

std::string TransferPace::Asked() const {
    if (!awaited) {
        return std::to_string(bytesPerSecond) + " bytes a second";
    }
    const auto rate = static_cast<double>(ShareOfRoom()) * stretchesPerGrace *
                      static_cast<double>(millisecondsPerSecond) /
                      static_cast<double>(grace.count());
    return std::to_string(static_cast<std::uint64_t>(rate)) +
           " bytes a second while others wait for room";
}

}  // namespace Brantel::Services
