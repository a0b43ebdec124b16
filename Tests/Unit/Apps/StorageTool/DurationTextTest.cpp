#include <gtest/gtest.h>

#include <StorageTool/DurationText.h>
#include <StorageTool/ExitCodes.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>

namespace Brantel::Tool {
namespace {

constexpr std::int64_t second = 1'000'000'000;

TEST(DurationTextTest, UnitsAddUp) {
    EXPECT_EQ(DurationText::Parse("1w2d3h4m5s6ms7us8ns"),
              ((((7 + 2) * 24 + 3) * 60 + 4) * 60 + 5) * second + 6'007'008);
    EXPECT_EQ(DurationText::Parse("90s"), 90 * second);
    EXPECT_EQ(DurationText::Parse("3µs"), 3'000);
    EXPECT_EQ(DurationText::Parse("0s"), 0);
}

TEST(DurationTextTest, FractionsAreExact) {
    EXPECT_EQ(DurationText::Parse("0.000000001s"), 1);
    EXPECT_EQ(DurationText::Parse("1.25h"), 4'500 * second);
    EXPECT_EQ(DurationText::Parse("1.0000000000s"), second);
}

TEST(DurationTextTest, AFractionOfANanosecondIsRefused) {
    for (const char* const text : {"1.5ns", "1.05ns", "0.0000000001s", "0.0001us"}) {
        EXPECT_THROW(DurationText::Parse(text), Misuse) << text;
    }
}

TEST(DurationTextTest, WhatIsNoDurationIsRefused) {
    for (const char* const text :
         {"", "1", "s", "1x", "1s1s", "1s1m", "-1s", "1.s", "1..5s", "1 s", "1S", "1.5"}) {
        EXPECT_THROW(DurationText::Parse(text), Misuse) << text;
    }
}

TEST(DurationTextTest, TheLimitIsThatOfTheNanoseconds) {
    EXPECT_EQ(DurationText::Parse("9223372036854775807ns"), INT64_MAX);
    EXPECT_THROW(DurationText::Parse("9223372036854775808ns"), Misuse);
    EXPECT_THROW(DurationText::Parse("9223372036s854775808ns"), Misuse);
    EXPECT_THROW(DurationText::Parse("99999999999999999999w"), Misuse);
}

TEST(DurationTextTest, EveryDurationThatIsPrintedIsReadBack) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20'000; ++i) {
        const auto value = static_cast<std::int64_t>(random() >> (1 + random() % 63));
        EXPECT_EQ(DurationText::Parse(DurationText::Print(value)), value);
    }
    EXPECT_EQ(DurationText::Print(0), "0s");
    EXPECT_EQ(DurationText::Print(5'400 * second), "1h30m");
    EXPECT_EQ(DurationText::Print(-40'000'000), "-0.04s");
    EXPECT_EQ(DurationText::Print(INT64_MIN), "-106751d23h47m16.854775808s");
}

TEST(DurationTextTest, RoundedDurationsAreForReaders) {
    EXPECT_EQ(DurationText::Round(0), "0 s");
    EXPECT_EQ(DurationText::Round(950), "950 ns");
    EXPECT_EQ(DurationText::Round(41'234), "41.2 us");
    EXPECT_EQ(DurationText::Round(12'400'000), "12.4 ms");
    EXPECT_EQ(DurationText::Round(59 * second), "59.0 s");
    EXPECT_EQ(DurationText::Round(10'000 * second), "2 h 46 min");
    EXPECT_EQ(DurationText::Round(-90'000 * second), "-1 d 1 h");
}

}  // namespace
}  // namespace Brantel::Tool
