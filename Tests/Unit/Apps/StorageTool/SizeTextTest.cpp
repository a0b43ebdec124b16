#include <gtest/gtest.h>

#include <StorageTool/ExitCodes.h>
#include <StorageTool/SizeText.h>

#include <cstdint>
#include <string>

namespace Brantel::Tool {
namespace {

TEST(SizeTextTest, PrefixesArePowersOfAThousandOrOf1024) {
    EXPECT_EQ(SizeText::Parse("4096"), 4096);
    EXPECT_EQ(SizeText::Parse("500M"), 500'000'000);
    EXPECT_EQ(SizeText::Parse("500MB"), 500'000'000);
    EXPECT_EQ(SizeText::Parse("2TiB"), std::int64_t{2} << 40U);
    EXPECT_EQ(SizeText::Parse("2ti"), std::int64_t{2} << 40U);
    EXPECT_EQ(SizeText::Parse("1.5GiB"), std::int64_t{3} << 29U);
    EXPECT_EQ(SizeText::Parse("7b"), 7);
}

TEST(SizeTextTest, WhatIsNoSizeIsRefused) {
    for (const char* const text : {"", "M", "1X", "1.5", "1.0000001K", "-1", "1 M", "1MiBB", ".5M",
                                   "5.M", "1.2.3M", "1e3", "1i", "1iB"}) {
        EXPECT_THROW(SizeText::Parse(text), Misuse) << text;
    }
}

TEST(SizeTextTest, TheLimitIsThatOf64Bits) {
    EXPECT_EQ(SizeText::Parse("9223372036854775807"), INT64_MAX);
    EXPECT_THROW(SizeText::Parse("9223372036854775808"), Misuse);
    EXPECT_THROW(SizeText::Parse("8EiB"), Misuse);
    EXPECT_THROW(SizeText::Parse("99999999999999999999E"), Misuse);
}

TEST(SizeTextTest, SizesArePrintedWithThreeDigits) {
    EXPECT_EQ(SizeText::Print(0), "0 B");
    EXPECT_EQ(SizeText::Print(1024), "1.00 KiB");
    EXPECT_EQ(SizeText::Print(1000), "1000 B");
    EXPECT_EQ(SizeText::Print(std::int64_t{3} << 29U), "1.50 GiB");
    EXPECT_EQ(SizeText::Print(INT64_MAX), "8.00 EiB");
}

TEST(RateTextTest, RatesAreInBitsOrBytes) {
    EXPECT_EQ(RateText::Parse("8Mbit/s"), 8'000'000);
    EXPECT_EQ(RateText::Parse("500kbit"), 500'000);
    EXPECT_EQ(RateText::Parse("1.5MB/s"), 12'000'000);
    EXPECT_EQ(RateText::Parse("1MiB/s"), 8 << 20);
}

TEST(RateTextTest, ASmallBAloneAndBareNumbersAreRefused) {
    for (const char* const text : {"8Mb/s", "8Mb", "8", "8M", "", "bit", "8b/s", "8Mbit/h"}) {
        EXPECT_THROW(RateText::Parse(text), Misuse) << text;
    }
}

TEST(RateTextTest, RatesArePrintedInBits) {
    EXPECT_EQ(RateText::Print(8'000'000), "8.00 Mbit/s");
    EXPECT_EQ(RateText::Print(12), "12 bit/s");
}

}  // namespace
}  // namespace Brantel::Tool
