// A stored protection that ends behind the largest time point was taken as it came; listing it
// added its beginning and its duration, which overflowed.

#include <libTracks/Protections.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace Brantel::Tracks {
namespace {

TEST(AStoredProtectionBehindTheEndOfTimeTest, ItIsNotTaken) {
    constexpr std::int64_t endOfTime = std::numeric_limits<std::int64_t>::max();
    Protections protections;
    EXPECT_NO_THROW(protections.Load({{1, {10, endOfTime - 10}}}));
    EXPECT_THROW(protections.Load({{2, {10, endOfTime - 9}}}), std::runtime_error);
    EXPECT_THROW(protections.Load({{3, {-1, 1}}}), std::runtime_error);
    EXPECT_EQ(protections.GetAll().size(), 1U);
}

}  // namespace
}  // namespace Brantel::Tracks
