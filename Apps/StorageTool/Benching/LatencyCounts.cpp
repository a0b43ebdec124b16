#include "Benching/LatencyCounts.h"

#include <algorithm>
#include <bit>

namespace Brantel::Tool {

// Below `steps` each number is a class of its own; above, each power of two has `steps` of them.
std::size_t LatencyCounts::ClassOf(std::uint64_t nanoseconds) {
    if (nanoseconds < steps) {
        return nanoseconds;
    }
    const auto shift = static_cast<unsigned>(std::bit_width(nanoseconds)) - stepBits - 1;
    return std::min(classes - 1,
                    (shift + 1) * steps + static_cast<std::size_t>(nanoseconds >> shift) - steps);
}

std::int64_t LatencyCounts::UpperEnd(std::size_t index) {
    if (index < steps) {
        return static_cast<std::int64_t>(index);
    }
    const std::size_t shift = index / steps - 1;
    const std::uint64_t begin = (steps + index % steps) << shift;
    return static_cast<std::int64_t>(begin + (std::uint64_t{1} << shift) - 1);
}

void LatencyCounts::Add(std::int64_t nanoseconds) {
    ++counts[ClassOf(static_cast<std::uint64_t>(std::max<std::int64_t>(0, nanoseconds)))];
    ++count;
    highest = std::max(highest, nanoseconds);
}

void LatencyCounts::Add(const LatencyCounts& other) {
    for (std::size_t i = 0; i < classes; ++i) {
        counts[i] += other.counts[i];
    }
    count += other.count;
    highest = std::max(highest, other.highest);
}

std::int64_t LatencyCounts::At(double part) const {
    const auto wanted = static_cast<std::int64_t>(part * static_cast<double>(count));
    std::int64_t seen = 0;
    for (std::size_t i = 0; i < classes; ++i) {
        seen += counts[i];
        if (counts[i] > 0 && seen >= wanted) {
            return std::min(UpperEnd(i), highest);
        }
    }
    return highest;
}

}  // namespace Brantel::Tool
