#include "Media/RateClock.h"

#include <limits>
#include <stdexcept>
#include <string>

namespace Brantel::Tool {

namespace {

// count (64 bits) * 1e9 (30 bits) * denominator (30 bits) fits.
__extension__ using Wide = unsigned __int128;

}  // namespace

Time::TimePoint RateClock::At(std::uint64_t count) const {
    constexpr std::uint64_t second = 1'000'000'000;
    const Wide passed = static_cast<Wide>(count) * second *
                        static_cast<std::uint64_t>(rate.Denominator()) /
                        static_cast<std::uint64_t>(rate.Numerator());
    const std::int64_t begin = start.ToNanoseconds();
    const auto room = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) -
                      static_cast<std::uint64_t>(begin < 0 ? 0 : begin);
    if (passed > room) {
        throw std::runtime_error("The time point of number " + std::to_string(count) + " at " +
                                 rate.Text() + " a second is past the highest one");
    }
    return Time::TimePoint::Nanoseconds(begin + static_cast<std::int64_t>(passed));
}

}  // namespace Brantel::Tool
