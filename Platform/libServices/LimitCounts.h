#pragma once

#include <atomic>
#include <cstdint>

namespace Brantel::Services {

// How often the limits of a listener's connections held. Counts up; synchronised by itself.
struct LimitCounts {
    std::atomic<std::uint64_t> oversizedMessages{0};  // announced longer than the longest message
    std::atomic<std::uint64_t> refusedMessages{0};    // too many elements, or nested too deep
    std::atomic<std::uint64_t> slowMessages{0};       // lost because a message came too slowly
    std::atomic<std::uint64_t> slowReceivers{0};      // lost because a message was taken too slowly
    std::atomic<std::uint64_t> delayedMessages{0};    // had to wait for room
};

}  // namespace Brantel::Services
