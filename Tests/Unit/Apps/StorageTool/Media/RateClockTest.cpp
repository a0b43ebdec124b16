#include <gtest/gtest.h>

#include <StorageTool/Media/RateClock.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace Brantel::Tool {
namespace {

using Time::TimePoint;

std::int64_t At(const RateClock& clock, std::uint64_t count) {
    return clock.At(count).ToNanoseconds();
}

TEST(RateClockTest, TimePointsBeginAtTheStart) {
    const RateClock clock(TimePoint::Nanoseconds(1000), Rate::Parse("25"));
    EXPECT_EQ(At(clock, 0), 1000);
    EXPECT_EQ(At(clock, 1), 40'001'000);
}

// 30000 frames of NTSC take 1001 seconds exactly, however often that is repeated.
TEST(RateClockTest, NothingDrifts) {
    const RateClock clock(TimePoint(), Rate::Parse("30000/1001"));
    EXPECT_EQ(At(clock, 1), 33'366'666);
    EXPECT_EQ(At(clock, 2), 66'733'333);
    EXPECT_EQ(At(clock, 3), 100'100'000);
    EXPECT_EQ(At(clock, 30'000), 1001'000'000'000);
    EXPECT_EQ(At(clock, 30'000ULL * 9'000'000), 9'009'000'000'000'000'000);
}

TEST(RateClockTest, TimePointsEndAtTheHighestOne) {
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    const RateClock clock(TimePoint::Nanoseconds(highest - 1), Rate::Parse("1000000000"));
    EXPECT_EQ(At(clock, 1), highest);
    EXPECT_THROW(clock.At(2), std::runtime_error);
    const RateClock slow(TimePoint(), Rate::Parse("1/1000000000"));
    EXPECT_THROW(slow.At(std::numeric_limits<std::uint64_t>::max()), std::runtime_error);
}

}  // namespace
}  // namespace Brantel::Tool
