// A stored protection that ends behind the largest time point was taken as it came; listing it
// added its beginning and its duration, which overflowed.

#include <libTracks/Protections.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace Brantel::Tracks {
namespace {

TEST(AStoredProtectionBehindTheEndOfTimeTest, ItIsRefused) {
    constexpr std::int64_t endOfTime = std::numeric_limits<std::int64_t>::max();
    std::int64_t track = 0;
    EXPECT_NO_THROW(Protections::Decode(Protections::Encode(7, {10, endOfTime - 10}), track));
    EXPECT_THROW(Protections::Decode(Protections::Encode(7, {10, endOfTime - 9}), track),
                 std::runtime_error);
    EXPECT_THROW(Protections::Decode(Protections::Encode(7, {-1, 1}), track), std::runtime_error);
}

}  // namespace
}  // namespace Brantel::Tracks
