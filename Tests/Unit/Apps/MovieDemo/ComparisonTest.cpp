#include <gtest/gtest.h>

#include <MovieDemo/Comparison.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace {

using Brantel::MovieDemo::Comparison;
using Brantel::Time::TimePoint;

class ComparisonTest : public testing::Test {
  protected:
    static std::string Difference(const std::function<void()>& compare) {
        try {
            compare();
            return "none";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }
    Comparison comparison;
};

TEST_F(ComparisonTest, EqualAnswersAreCounted) {
    comparison.Bytes("picture", std::string("a\0b", 3), std::string("a\0b", 3));
    comparison.Numbers("count", -7, -7);
    comparison.TimePoints("end", TimePoint::Nanoseconds(5), TimePoint::Nanoseconds(5));
    comparison.Holds("one is one", true);
    EXPECT_EQ(comparison.ComparedAnswers(), 4U);
    EXPECT_EQ(comparison.ComparedBytes(), 3U);
}

TEST_F(ComparisonTest, TheFirstByteThatDiffersIsNamed) {
    EXPECT_EQ(Difference([&] { comparison.Bytes("frame 7, image", "ab\xFF", "aba"); }),
              "frame 7, image: byte 2 of 3 is 255 instead of 97");
    EXPECT_EQ(comparison.ComparedBytes(), 0U);
}

TEST_F(ComparisonTest, AMissingByteIsADifference) {
    EXPECT_EQ(Difference([&] { comparison.Bytes("frame 7, image", "ab", "abc"); }),
              "frame 7, image: the size in bytes is 2 instead of 3");
}

TEST_F(ComparisonTest, NumbersAndTimePointsThatDifferAreNamed) {
    EXPECT_EQ(Difference([&] { comparison.Numbers("the count", 2, 3); }),
              "the count is 2 instead of 3");
    EXPECT_EQ(Difference([&] {
                  comparison.TimePoints("the end", TimePoint::Nanoseconds(-1), TimePoint());
              }),
              "the end is -0.000000001 instead of 0.000000000");
}

TEST_F(ComparisonTest, WhatDoesNotHoldIsNamed) {
    EXPECT_EQ(Difference([&] { comparison.Holds("one is two", false); }),
              "Does not hold: one is two");
}

}  // namespace
