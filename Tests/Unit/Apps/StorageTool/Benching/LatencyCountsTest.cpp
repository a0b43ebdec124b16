#include <gtest/gtest.h>

#include <StorageTool/Benching/LatencyCounts.h>

#include <cstdint>

namespace Brantel::Tool {
namespace {

TEST(LatencyCountsTest, WithoutCallsEverythingIsZero) {
    const LatencyCounts counts;
    EXPECT_EQ(counts.Count(), 0);
    EXPECT_EQ(counts.At(0.5), 0);
}

TEST(LatencyCountsTest, PartsAreRightToAThirtySecond) {
    LatencyCounts counts;
    for (std::int64_t i = 1; i <= 100'000; ++i) {
        counts.Add(i * 1000);
    }
    EXPECT_EQ(counts.Highest(), 100'000'000);
    for (const double part : {0.001, 0.5, 0.9, 0.99, 0.999, 1.0}) {
        const double exact = part * 100'000'000;
        EXPECT_GE(static_cast<double>(counts.At(part)), exact * (1 - 1.0 / 32)) << part;
        EXPECT_LE(static_cast<double>(counts.At(part)), exact * (1 + 1.0 / 32)) << part;
    }
}

TEST(LatencyCountsTest, EveryNumberFindsAClass) {
    for (const std::int64_t number :
         {std::int64_t{0}, std::int64_t{31}, std::int64_t{32}, std::int64_t{63}, std::int64_t{64},
          std::int64_t{-5}, std::int64_t{1} << 40, INT64_MAX}) {
        LatencyCounts counts;
        counts.Add(number);
        EXPECT_EQ(counts.Count(), 1);
        EXPECT_LE(counts.At(1), counts.Highest());
    }
}

TEST(LatencyCountsTest, CountsAreAdded) {
    LatencyCounts one;
    one.Add(10);
    LatencyCounts other;
    other.Add(20);
    one.Add(other);
    EXPECT_EQ(one.Count(), 2);
    EXPECT_EQ(one.Highest(), 20);
    EXPECT_EQ(one.At(0.5), 10);
}

}  // namespace
}  // namespace Brantel::Tool
