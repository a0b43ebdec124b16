#include <libTracks/RingEnd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace Brantel::Tracks {
namespace {

using Engine::SegmentInfo;

// A segment with the chunks [first, last], the ring's front being 0.
SegmentInfo Segment(std::uint64_t first, std::uint64_t last, bool mayFollowLoss = false) {
    SegmentInfo info;
    info.count = last - first + 1;
    info.first.ordinal = first;
    info.last.ordinal = last;
    info.mayFollowLoss = mayFollowLoss;
    return info;
}

TEST(RingEndTest, ARingWithoutAGapIsWhole) {
    EXPECT_EQ(FindRingEnd(std::vector{Segment(0, 4), Segment(5, 9, true)}, 0), 2U);
}

TEST(RingEndTest, AGapThatALossOfPowerLeavesEndsTheRing) {
    EXPECT_EQ(
        FindRingEnd(std::vector{Segment(0, 4), Segment(7, 9, true), Segment(10, 12, true)}, 0), 1U);
}

TEST(RingEndTest, AGapOfASingleChunkIsOne) {
    EXPECT_EQ(FindRingEnd(std::vector{Segment(0, 4), Segment(6, 9, true)}, 0), 1U);
    EXPECT_EQ(FindRingEnd(std::vector{Segment(1, 4, true)}, 0), 0U);
}

TEST(RingEndTest, AGapInFrontOfWhatWasOnceSafeIsDamageAndEndsNothing) {
    EXPECT_EQ(FindRingEnd(std::vector{Segment(0, 4), Segment(7, 9)}, 0), 2U);
    EXPECT_EQ(FindRingEnd(std::vector{Segment(0, 4), Segment(7, 9, true), Segment(10, 12)}, 0), 3U);
}

TEST(RingEndTest, AGapAtTheBeginningIsJudgedAlike) {
    EXPECT_EQ(FindRingEnd(std::vector{Segment(3, 4, true)}, 0), 0U);
    EXPECT_EQ(FindRingEnd(std::vector{Segment(3, 4, true)}, 3), 1U);
}

TEST(RingEndTest, AGapInFrontOfTheFrontIsNone) {
    std::vector<SegmentInfo> ring{Segment(0, 4), Segment(7, 20, true)};
    ring.back().last.front = 9;
    EXPECT_EQ(FindRingEnd(ring, 0), 2U);
}

TEST(RingEndTest, EmptySegmentsSayNothing) {
    SegmentInfo empty;
    EXPECT_EQ(FindRingEnd(std::vector{Segment(0, 4), empty, Segment(7, 9, true), empty}, 0), 2U);
}

}  // namespace
}  // namespace Brantel::Tracks
