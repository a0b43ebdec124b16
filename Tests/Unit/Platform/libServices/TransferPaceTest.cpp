#include <libServices/TransferPace.h>

#include <gtest/gtest.h>

#include <thread>

namespace Brantel::Services {
namespace {

using std::chrono::milliseconds;

// Time passes by itself; that a test waits for it is its subject.
void Pass(milliseconds time) {
    std::this_thread::sleep_for(time);
}

TEST(TransferPaceTest, WithoutALimitEverythingIsFastEnough) {
    TransferPace pace;
    EXPECT_FALSE(pace.IsLimited());
    EXPECT_EQ(pace.LongestWait(), -1);
    EXPECT_TRUE(pace.Keeps(0));
    EXPECT_TRUE(pace.Keeps(0));
}

TEST(TransferPaceTest, NothingIsAskedDuringTheGrace) {
    TransferPace pace(1000, milliseconds(60'000));
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(pace.Keeps(0));
    }
}

TEST(TransferPaceTest, TooLittleInTheGraceIsTooSlow) {
    TransferPace pace(1000, milliseconds(20));
    EXPECT_TRUE(pace.Keeps(10));
    Pass(milliseconds(25));
    EXPECT_FALSE(pace.Keeps(9));
}

TEST(TransferPaceTest, EnoughInTheGraceBeginsANewOne) {
    TransferPace pace(1000, milliseconds(20));
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(pace.Keeps(10));
        Pass(milliseconds(25));
        EXPECT_TRUE(pace.Keeps(10));
    }
    Pass(milliseconds(25));
    EXPECT_FALSE(pace.Keeps(0));
}

TEST(TransferPaceTest, ANewMessageHasItsOwnGrace) {
    TransferPace pace(1000, milliseconds(20));
    EXPECT_TRUE(pace.Keeps(0));
    Pass(milliseconds(25));
    pace.Restart();
    EXPECT_TRUE(pace.Keeps(0));
}

TEST(TransferPaceTest, ASingleWaitIsAPartOfTheGraceAndAtMostASecond) {
    EXPECT_EQ(TransferPace(1, milliseconds(1)).LongestWait(), 1);
    EXPECT_EQ(TransferPace(1, milliseconds(500)).LongestWait(), 50);
    EXPECT_EQ(TransferPace(1, milliseconds(60'000)).LongestWait(), 1000);
}

}  // namespace
}  // namespace Brantel::Services
