#include <gtest/gtest.h>

#include <StorageTool/Media/Rate.h>

#include <stdexcept>
#include <string>

namespace Brantel::Tool {
namespace {

TEST(RateTest, WholeNumbersDecimalsAndFractionsAreExact) {
    EXPECT_EQ(Rate::Parse("25").Text(), "25");
    EXPECT_EQ(Rate::Parse("29.97").Text(), "2997/100");
    EXPECT_EQ(Rate::Parse("30000/1001").Text(), "30000/1001");
    EXPECT_EQ(Rate::Parse("50/2").Text(), "25");
    EXPECT_EQ(Rate::Parse("0.5").Text(), "1/2");
    EXPECT_EQ(Rate::Parse("0.000000001").Text(), "1/1000000000");
}

TEST(RateTest, WhatIsNoRateIsNamed) {
    for (const std::string text : {"", "0", "-1", "25fps", "1/0", "0/1", "1/", "/1", "1.", ".",
                                   "1.0000000001", "1/2/3", "1e3", " 1", "0.0"}) {
        try {
            Rate::Parse(text);
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "'" + text +
                                        "' is no rate: a number above 0 such as 25, 29.97 or "
                                        "30000/1001");
        }
    }
}

TEST(RateTest, ARateOverTheLimitIsRefused) {
    EXPECT_THROW(Rate::Parse("1000000000000001"), std::runtime_error);
    EXPECT_THROW(Rate::Parse("1/1000000001"), std::runtime_error);
    EXPECT_EQ(Rate::Parse("1000000000000000").Numerator(), 1'000'000'000'000'000);
}

}  // namespace
}  // namespace Brantel::Tool
