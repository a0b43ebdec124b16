#include "Support/Waiting.h"

#include <libServices/ArrivalRoom.h>
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

// Others wait for room of which the message keeps 1000 bytes; the grace is 500 ms, so 100 bytes are
// asked in each 100 ms.
class AwaitedPaceTest : public testing::Test {
  protected:
    AwaitedPaceTest() {
        room.Enter(first, 1000);
        bool waited = false;
        room.Take(
            first, 1000, [] { return true; }, waited);
        pace.KeepRoom(&room, 1000);
    }
    ~AwaitedPaceTest() override {
        room.Leave(first);
        if (other.joinable()) {
            other.join();
        }
    }
    void LetAnotherWait() {
        other = std::thread([this] {
            ArrivingMessage second;
            room.Enter(second, 1);
            bool waited = false;
            EXPECT_TRUE(room.Take(
                second, 1, [] { return false; }, waited));
            room.Leave(second);
        });
        ASSERT_TRUE(Tests::Eventually([this] { return room.IsAwaited(); }));
    }

    ArrivalRoom room{1000};
    ArrivingMessage first;
    TransferPace pace{1, milliseconds(500)};
    std::thread other;
};

TEST_F(AwaitedPaceTest, WhoKeepsRoomFromOthersMustBeFaster) {
    LetAnotherWait();
    EXPECT_TRUE(pace.Keeps(0));
    Pass(milliseconds(110));
    EXPECT_FALSE(pace.Keeps(99));
    EXPECT_EQ(pace.Asked(), "1000 bytes a second while others wait for room");
}

TEST_F(AwaitedPaceTest, WhoIsFastEnoughGoesOn) {
    LetAnotherWait();
    EXPECT_TRUE(pace.Keeps(0));
    for (int i = 0; i < 3; ++i) {
        Pass(milliseconds(110));
        EXPECT_TRUE(pace.Keeps(100));
    }
}

TEST_F(AwaitedPaceTest, WithoutOthersItMayBeAsSlowAsEver) {
    EXPECT_TRUE(pace.Keeps(1));
    Pass(milliseconds(110));
    EXPECT_TRUE(pace.Keeps(0));
    // What was slow before does not count.
    LetAnotherWait();
    EXPECT_TRUE(pace.Keeps(0));
}

TEST_F(AwaitedPaceTest, WhoKeepsNoRoomMayBeAsSlowAsEver) {
    LetAnotherWait();
    pace.KeepRoom(&room, 0);
    EXPECT_TRUE(pace.Keeps(0));
    Pass(milliseconds(110));
    EXPECT_TRUE(pace.Keeps(0));
}

TEST(TransferPaceTest, ASingleWaitIsAPartOfTheGraceAndAtMostASecond) {
    EXPECT_EQ(TransferPace(1, milliseconds(1)).LongestWait(), 1);
    EXPECT_EQ(TransferPace(1, milliseconds(500)).LongestWait(), 50);
    EXPECT_EQ(TransferPace(1, milliseconds(60'000)).LongestWait(), 1000);
}

}  // namespace
}  // namespace Brantel::Services
