#pragma once

#include <CommonMessages.pb.h>

#include <cstdint>

namespace Brantel::Tracks {

// A time point on the wire is the two's complement of its count.
inline std::int64_t FromMessage(const Protocol::TimePoint& message) {
    return static_cast<std::int64_t>(message.nanoseconds());
}
inline void ToMessage(std::int64_t timePoint, Protocol::TimePoint& message) {
    message.set_nanoseconds(static_cast<std::uint64_t>(timePoint));
}

}  // namespace Brantel::Tracks
