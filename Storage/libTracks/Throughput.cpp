#include "Throughput.h"

#include <algorithm>

namespace Brantel::Tracks {

void Throughput::Add(TimePoint now, std::uint64_t bytes) {
    const auto number = std::chrono::duration_cast<std::chrono::seconds>(now - start).count();
    Second& second = seconds[static_cast<std::size_t>(number) % seconds.size()];
    if (second.number.load(std::memory_order_relaxed) != number) {
        second.bytes.store(0, std::memory_order_relaxed);
        second.number.store(number, std::memory_order_relaxed);
    }
    second.bytes.store(second.bytes.load(std::memory_order_relaxed) + bytes,
                       std::memory_order_relaxed);
}

std::uint64_t Throughput::GetBytesPerSecond(TimePoint now) const {
    constexpr std::int64_t nanosecondsPerSecond = 1000000000;
    const std::int64_t age =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now - start).count();
    const std::int64_t current = age / nanosecondsPerSecond;
    const std::int64_t first = std::max<std::int64_t>(0, current - windowSeconds);
    std::uint64_t bytes = 0;
    for (const Second& second : seconds) {
        const std::int64_t number = second.number.load(std::memory_order_relaxed);
        if (first <= number && number <= current) {
            bytes += second.bytes.load(std::memory_order_relaxed);
        }
    }
    const std::int64_t covered = std::max(age - first * nanosecondsPerSecond, nanosecondsPerSecond);
    return static_cast<std::uint64_t>(static_cast<double>(bytes) /
                                      (static_cast<double>(covered) / nanosecondsPerSecond));
}

}  // namespace Brantel::Tracks
