#include "Support/Refusal.h"

#include <gtest/gtest.h>

#include <StorageServer/Setting.h>
#include <StorageServer/SettingText.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace {

using Brantel::Server::Setting;
using Brantel::Server::SettingText;

std::string ErrorOf(const std::function<void()>& call) {
    return Brantel::Tests::RefusalOf<std::invalid_argument>(call);
}

TEST(SettingTextTest, ANumberIsDigitsWithinItsRange) {
    EXPECT_EQ(SettingText::ParseNumber("17", {1, 17}), 17U);
    EXPECT_EQ(SettingText::ParseNumber("1", {1, 17}), 1U);
    for (const std::string text :
         {"0", "18", "", "-1", "+1", "1 ", "0x1", "99999999999999999999"}) {
        EXPECT_EQ(ErrorOf([&] {
                      SettingText::ParseNumber(text, {1, 17});
                  }),
                  text + " is not within 1 to 17");
    }
}

TEST(SettingTextTest, ASizeMayHaveAUnit) {
    EXPECT_EQ(SettingText::ParseSize("500", {0, 1U << 30U}), 500U);
    EXPECT_EQ(SettingText::ParseSize("5kb", {0, 1U << 30U}), 5000U);
    EXPECT_EQ(SettingText::ParseSize("5 KiB", {0, 1U << 30U}), 5120U);
    EXPECT_EQ(ErrorOf([&] {
                  SettingText::ParseSize("2GiB", {0, 1U << 30U});
              }),
              "2GiB is not within 0 to 1073741824");
    for (const std::string text : {"", "many", "-5", "20EiB", "5 parsecs"}) {
        EXPECT_NE(ErrorOf([&] { SettingText::ParseSize(text, {0, 100}); }), "nothing") << text;
    }
}

TEST(SettingTextTest, ASizeIsShownInTheLargestUnitThatDividesIt) {
    EXPECT_EQ(SettingText::OfSize(0), "0");
    EXPECT_EQ(SettingText::OfSize(1023), "1023");
    EXPECT_EQ(SettingText::OfSize(1U << 20U), "1MiB");
    EXPECT_EQ(SettingText::OfSize(3ULL << 30U), "3GiB");
    for (const std::uint64_t bytes : {1ULL, 1500ULL, 5ULL << 40U, (1ULL << 63U) - 1}) {
        EXPECT_EQ(SettingText::ParseSize(SettingText::OfSize(bytes), {0, ~0ULL}), bytes);
    }
}

TEST(SettingTextTest, AModeIsOctal) {
    EXPECT_EQ(SettingText::ParseMode("0640"), 0640U);
    EXPECT_EQ(SettingText::OfMode(0640), "640");
    EXPECT_EQ(SettingText::OfMode(07), "007");
    EXPECT_EQ(ErrorOf([&] { SettingText::ParseMode("888"); }),
              "Mode 888 is not an octal number from 0 to 777");
}

TEST(SettingTextTest, AChoiceIsItsPlaceAndTheOthersAreNamed) {
    EXPECT_EQ(SettingText::ParseChoice("b", {"a", "b"}), 1U);
    EXPECT_EQ(ErrorOf([&] { SettingText::ParseChoice("c", {"a", "b"}); }), "c is none of a, b");
    EXPECT_EQ(ErrorOf([&] { SettingText::ParseFlag("yes"); }), "yes is neither true nor false");
}

TEST(SettingTextTest, TheNamesOfASettingFollowFromItsKey) {
    Setting setting;
    setting.key = "socket-mode";
    EXPECT_EQ(setting.FlagName(), "--socket-mode");
    EXPECT_EQ(setting.VariableName(), "BRANTEL_SOCKET_MODE");
}

}  // namespace
