#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace Brantel::Engine {

// How many values lay up to which bound, and their sum. A value.
template <std::size_t Bounds>
struct Distribution {
    std::array<std::uint64_t, Bounds> bounds{};  // they increase
    // counts[i]: above bounds[i - 1], up to bounds[i]; the last one: above all bounds.
    std::array<std::uint64_t, Bounds + 1> counts{};
    std::uint64_t sum = 0;

    std::uint64_t GetTotal() const noexcept {
        return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
    }
};

// A distribution while it grows: any thread adds, any thread asks, nobody waits. What is asked
// meanwhile may hold a value's count and not its sum yet.
template <std::size_t Bounds>
class DistributionCounter {
  public:
    // The bounds are borrowed.
    explicit DistributionCounter(const std::array<std::uint64_t, Bounds>& bounds)
        : bounds(bounds) {}

    void Add(std::uint64_t value) noexcept {
        const auto bound = std::lower_bound(bounds.begin(), bounds.end(), value);
        counts[static_cast<std::size_t>(bound - bounds.begin())].fetch_add(
            1, std::memory_order_relaxed);
        sum.fetch_add(value, std::memory_order_relaxed);
    }

    Distribution<Bounds> Get() const noexcept {
        Distribution<Bounds> result;
        result.bounds = bounds;
        for (std::size_t index = 0; index < counts.size(); ++index) {
            result.counts[index] = counts[index].load(std::memory_order_relaxed);
        }
        result.sum = sum.load(std::memory_order_relaxed);
        return result;
    }

  private:
    const std::array<std::uint64_t, Bounds>& bounds;
    std::array<std::atomic<std::uint64_t>, Bounds + 1> counts{};
    std::atomic<std::uint64_t> sum = 0;
};

}  // namespace Brantel::Engine
