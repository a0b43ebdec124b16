#include <gtest/gtest.h>

#include <StorageTool/Recording/LineField.h>

#include <optional>
#include <string>

namespace Brantel::Tool {
namespace {

TEST(LineFieldTest, ANumberIsAColumnFromOne) {
    EXPECT_EQ(LineField("1").Find("a b\tc\r\n"), "a");
    EXPECT_EQ(LineField("3").Find("  a b\tc\r\n"), "c");
    EXPECT_EQ(LineField("4").Find("a b c\n"), std::nullopt);
    EXPECT_EQ(LineField("1").Find("\n"), std::nullopt);
}

TEST(LineFieldTest, ANameIsAMemberOfTheOutermostObject) {
    const LineField field("t");
    EXPECT_EQ(field.Find(R"({"a":{"t":1},"b":["t",2],"t":"three"})"), "three");
    EXPECT_EQ(field.Find(R"({"t":12345678901234567})"), "12345678901234567");
    EXPECT_EQ(field.Find(R"({"t":-5})"), "-5");
    EXPECT_EQ(field.Find(R"({"x":"t"})"), std::nullopt);
}

// As a number with a fraction it would be rounded.
TEST(LineFieldTest, TheDigitsOfANumberAreKept) {
    EXPECT_EQ(LineField("t").Find(R"({"t":1714566600.123456789})"), "1714566600.123456789");
}

TEST(LineFieldTest, WhatIsNeitherTextNorNumberIsNoField) {
    for (const std::string line :
         {R"({"t":null})", R"({"t":true})", R"({"t":[1]})", R"({"t":{"t":1}})", "[1]", "t", ""}) {
        EXPECT_EQ(LineField("t").Find(line), std::nullopt) << line;
    }
}

}  // namespace
}  // namespace Brantel::Tool
