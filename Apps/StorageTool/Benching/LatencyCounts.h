#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Brantel::Tool {

// How long calls took: counted in classes that are at most 1/32 wide, from 1 ns to 9 minutes, so
// that any number of them takes the same memory. A value.
class LatencyCounts {
  public:
    void Add(std::int64_t nanoseconds);
    void Add(const LatencyCounts& other);

    std::int64_t Count() const { return count; }
    // The largest that was added.
    std::int64_t Highest() const { return highest; }
    // What this part of the calls, 0 to 1, did not exceed, to 1/32; 0 without calls.
    std::int64_t At(double part) const;

  private:
    static constexpr unsigned stepBits = 5;
    static constexpr std::size_t steps = std::size_t{1} << stepBits;
    static constexpr std::size_t classes = 36 * steps;

    static std::size_t ClassOf(std::uint64_t nanoseconds);
    static std::int64_t UpperEnd(std::size_t index);

    std::array<std::int64_t, classes> counts{};
    std::int64_t count = 0;
    std::int64_t highest = 0;
};

}  // namespace Brantel::Tool
