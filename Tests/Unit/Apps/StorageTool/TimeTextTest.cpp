#include <gtest/gtest.h>

#include <StorageTool/ExitCodes.h>
#include <StorageTool/TimeText.h>

#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {
namespace {

using Time::TimePoint;

constexpr std::int64_t second = 1'000'000'000;

class TimeTextTest : public testing::Test {
  protected:
    std::int64_t At(const std::string& text) const {
        return TimeText::Parse(text).Resolve(bounds).ToNanoseconds();
    }
    static std::string RefusalOf(const std::string& text) {
        try {
            TimeText::Parse(text);
            return "not refused";
        } catch (const Misuse& error) {
            return error.what();
        }
    }
    static std::string Print(std::int64_t nanoseconds, TimeFormat format) {
        return TimeText::Print(TimePoint::Nanoseconds(nanoseconds), format);
    }

    const std::int64_t now = 1'714'566'600 * second;
    const TimeBounds bounds{TimePoint::Nanoseconds(now), TimePoint::Nanoseconds(5 * second),
                            TimePoint::Nanoseconds(95 * second)};
};

TEST_F(TimeTextTest, WordsStandForNowAndForTheEndsOfTheTrack) {
    EXPECT_EQ(At("now"), now);
    EXPECT_EQ(At("start"), 5 * second);
    EXPECT_EQ(At("end"), 95 * second);
}

TEST_F(TimeTextTest, WordsTakeOffsets) {
    EXPECT_EQ(At("now-1h30m"), now - 5400 * second);
    EXPECT_EQ(At("start+250ms"), 5'250'000'000);
    EXPECT_EQ(At("end-1ns"), 94'999'999'999);
    EXPECT_EQ(At("-90s"), now - 90 * second);
}

TEST_F(TimeTextTest, ADurationIsSoLongAfterZero) {
    EXPECT_EQ(At("1h30m"), 5400 * second);
    EXPECT_EQ(At("1.5s"), 1'500'000'000);
}

TEST_F(TimeTextTest, CalendarTimesHaveUpToNineDigitsAndAnyZone) {
    EXPECT_EQ(At("2024-05-01T12:30:00Z"), now);
    EXPECT_EQ(At("2024-05-01 12:30:00"), now);
    EXPECT_EQ(At("2024-05-01t14:30:00.000000001+02:00"), now + 1);
    EXPECT_EQ(At("2024-05-01T07:00:00.25-05:30"), now + 250'000'000);
    EXPECT_EQ(At("2024-05-01"), now - 45'000 * second);
    EXPECT_EQ(At("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(At("1969-12-31T23:59:59.999999999Z"), -1);
}

TEST_F(TimeTextTest, TheNumberOfDigitsOfAUnixTimeSaysItsUnit) {
    EXPECT_EQ(At("1714566600"), now);
    EXPECT_EQ(At("1714566600123"), now + 123'000'000);
    EXPECT_EQ(At("1714566600123456"), now + 123'456'000);
    EXPECT_EQ(At("1714566600123456789"), now + 123'456'789);
    EXPECT_EQ(At("0"), 0);
}

TEST_F(TimeTextTest, SecondsTakeAFractionOrACountOfNanoseconds) {
    EXPECT_EQ(At("12.000000001"), 12'000'000'001);
    EXPECT_EQ(At("12.5"), 12'500'000'000);
    EXPECT_EQ(At("12:5"), 12'000'000'005);
    EXPECT_EQ(At("9223372036.854775807"), std::numeric_limits<std::int64_t>::max());
}

TEST_F(TimeTextTest, WhatIsNoTimeIsRefusedByName) {
    for (const char* const text : {"",
                                   "soon",
                                   "-",
                                   "--1s",
                                   "now-",
                                   "now+x",
                                   "nowadays",
                                   "5",
                                   "12345",
                                   "12.",
                                   ".5",
                                   "1.0000000001",
                                   "12:1000000000",
                                   "2024-13-01",
                                   "2024-02-30",
                                   "2024-05-01T24:00:00Z",
                                   "2024-05-01T12:60:00Z",
                                   "2024-05-01T12:00:60Z",
                                   "2024-05-01T12:00",
                                   "2024-05-01T12:00:00.",
                                   "2024-05-01T12:00:00.1234567890Z",
                                   "2024-05-01T12:00:00+2:00",
                                   "2024-05-01x",
                                   "1h2h",
                                   "1m1h",
                                   "1e9",
                                   "1s ",
                                   " 1s",
                                   "0x10"}) {
        EXPECT_EQ(RefusalOf(text).rfind("Time " + std::string(text), 0), 0U) << RefusalOf(text);
    }
}

TEST_F(TimeTextTest, WhatSixtyFourBitsDoNotHoldIsRefused) {
    EXPECT_NE(RefusalOf("9223372036.854775808"), "not refused");
    EXPECT_NE(RefusalOf("9999999999999999999"), "not refused");
    EXPECT_NE(RefusalOf("9999-01-01"), "not refused");
    EXPECT_NE(RefusalOf("99999999999w"), "not refused");
    EXPECT_THROW(TimeText::Parse("now+290y"), Misuse);
    EXPECT_THROW(TimeText::Parse("now+250w")
                     .Resolve({TimePoint::GetHighestTimePoint(), TimePoint(), TimePoint()}),
                 std::runtime_error);
}

TEST_F(TimeTextTest, AnEmptyTrackHasNeitherStartNorEnd) {
    const TimeBounds empty{TimePoint::Nanoseconds(now), TimePoint::Nanoseconds(-1),
                           TimePoint::Nanoseconds(-1)};
    EXPECT_THROW(TimeText::Parse("start").Resolve(empty), std::runtime_error);
    EXPECT_THROW(TimeText::Parse("end-1s").Resolve(empty), std::runtime_error);
}

TEST_F(TimeTextTest, WallTimesArePrintedAsSuchAndOthersAsSeconds) {
    EXPECT_EQ(Print(now, TimeFormat::Auto), "2024-05-01T12:30:00Z");
    EXPECT_EQ(Print(now + 1, TimeFormat::Auto), "2024-05-01T12:30:00.000000001Z");
    EXPECT_EQ(Print(now + 250'000'000, TimeFormat::Auto), "2024-05-01T12:30:00.250Z");
    EXPECT_EQ(Print(12'500'000'000, TimeFormat::Auto), "12.500000000");
    EXPECT_EQ(Print(12, TimeFormat::Rfc3339), "1970-01-01T00:00:00.000000012Z");
    EXPECT_EQ(Print(now, TimeFormat::Seconds), "1714566600.000000000");
    EXPECT_EQ(Print(now, TimeFormat::Nanoseconds), "1714566600000000000");
}

TEST_F(TimeTextTest, EveryTimeThatIsPrintedIsReadBackToTheNanosecond) {
    std::mt19937_64 random(1);
    std::vector<std::int64_t> values{0,      1,   999'999'999,
                                     second, now, std::numeric_limits<std::int64_t>::max()};
    for (int i = 0; i < 20'000; ++i) {
        values.push_back(static_cast<std::int64_t>(random() >> (1 + random() % 63)));
    }
    for (const std::int64_t value : values) {
        EXPECT_EQ(At(Print(value, TimeFormat::Auto)), value);
        EXPECT_EQ(At(Print(value, TimeFormat::Rfc3339)), value);
        EXPECT_EQ(At(Print(value, TimeFormat::Seconds)), value);
        EXPECT_EQ(At(Print(value, TimeFormat::Nanoseconds) + "ns"), value);
    }
}

TEST_F(TimeTextTest, TimesBeforeNineteenSeventyAreReadBackFromTheCalendar) {
    std::mt19937_64 random(2);
    for (int i = 0; i < 20'000; ++i) {
        const auto value = -static_cast<std::int64_t>(random() >> 1U);
        EXPECT_EQ(At(Print(value, TimeFormat::Rfc3339)), value);
    }
    const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(At(Print(lowest, TimeFormat::Rfc3339)), lowest);
}

class TimeRangeTest : public TimeTextTest {
  protected:
    std::string Resolve(const std::string& text) const {
        const TimeRange::Resolved range = TimeRange::Parse(text).Resolve(bounds);
        return std::to_string(range.in.ToNanoseconds()) + " " +
               std::to_string(range.out.ToNanoseconds());
    }
};

TEST_F(TimeRangeTest, ARangeGoesFromOneTimeToAnother) {
    EXPECT_EQ(Resolve("1s..2s"), "1000000000 2000000000");
    EXPECT_EQ(Resolve("[1s_2s)"), "1000000000 2000000000");
    EXPECT_EQ(Resolve("1s+500ms"), "1000000000 1500000000");
    EXPECT_EQ(Resolve("end-10s..end"), "85000000000 95000000000");
}

TEST_F(TimeRangeTest, AMissingEndIsThatOfTheTrack) {
    EXPECT_EQ(Resolve("10s.."), "10000000000 95000000000");
    EXPECT_EQ(Resolve("..10s"), "5000000000 10000000000");
    EXPECT_EQ(Resolve(".."), "5000000000 95000000000");
}

TEST_F(TimeRangeTest, AZoneIsNotADuration) {
    EXPECT_EQ(Resolve("2024-05-01T14:30:00+02:00+1ns"),
              std::to_string(now) + " " + std::to_string(now + 1));
    EXPECT_THROW(TimeRange::Parse("2024-05-01T14:30:00+02:00"), Misuse);
}

TEST_F(TimeRangeTest, WhatIsNoRangeIsRefused) {
    for (const char* const text : {"", "1s", "1s+", "1s+x", "[1s_2s]", "[1s)", "x..1s", "1s..x",
                                   "now", "2024-05-01", "9223372036s+9223372036s"}) {
        EXPECT_THROW(TimeRange::Parse(text), Misuse) << text;
    }
}

TEST_F(TimeRangeTest, ARangeDoesNotEndBeforeItBegins) {
    EXPECT_THROW(Resolve("2s..1s"), std::runtime_error);
    EXPECT_EQ(Resolve("2s..2s"), "2000000000 2000000000");
}

}  // namespace
}  // namespace Brantel::Tool
