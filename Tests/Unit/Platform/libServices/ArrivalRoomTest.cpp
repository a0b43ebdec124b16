#include "Support/Waiting.h"

#include <libServices/ArrivalRoom.h>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

class ArrivalRoomTest : public testing::Test {
  protected:
    // Takes room on a thread of its own; ready once it has it, or was told that it is over.
    std::future<bool> TakeLater(std::uint64_t bytes) {
        return std::async(std::launch::async, [this, bytes] {
            bool waited = false;
            const bool taken = room.Take(
                bytes,
                [this] {
                    ++asked;
                    return isOver.load();
                },
                waited);
            return taken && waited;
        });
    }
    bool TakeNow(std::uint64_t bytes) {
        bool waited = false;
        return room.Take(
                   bytes, [] { return true; }, waited) &&
               !waited;
    }
    static bool IsReady(std::future<bool>& result) {
        return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }
    // Until so many questions more were asked: those who wait do wait.
    void UntilAsked(int times) {
        const int before = asked;
        EXPECT_TRUE(Tests::Eventually([&] { return asked >= before + times; }));
    }

    ArrivalRoom room{100};
    std::atomic<bool> isOver{false};
    std::atomic<int> asked{0};
};

TEST_F(ArrivalRoomTest, WhatFitsIsTakenAtOnce) {
    EXPECT_TRUE(TakeNow(60));
    EXPECT_TRUE(TakeNow(40));
    EXPECT_EQ(room.Taken(), 100U);
    room.GiveBack(60);
    EXPECT_TRUE(TakeNow(60));
    room.GiveBack(100);
    EXPECT_EQ(room.Taken(), 0U);
}

TEST_F(ArrivalRoomTest, WhatDoesNotFitWaitsUntilSomeIsGivenBack) {
    EXPECT_TRUE(TakeNow(60));
    std::future<bool> waiting = TakeLater(41);
    UntilAsked(2);
    EXPECT_FALSE(IsReady(waiting));
    room.GiveBack(60);
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(room.Taken(), 41U);
    room.GiveBack(41);
}

TEST_F(ArrivalRoomTest, WhoComesLaterDoesNotPassWhoWaits) {
    EXPECT_TRUE(TakeNow(60));
    std::future<bool> large = TakeLater(100);
    UntilAsked(1);
    std::future<bool> small = TakeLater(1);
    UntilAsked(4);
    EXPECT_FALSE(IsReady(small));
    room.GiveBack(60);
    EXPECT_TRUE(large.get());
    UntilAsked(2);
    EXPECT_FALSE(IsReady(small));
    room.GiveBack(100);
    EXPECT_TRUE(small.get());
    room.GiveBack(1);
}

TEST_F(ArrivalRoomTest, WhoseConnectionEndsWaitsNoLongerAndHoldsUpNobody) {
    EXPECT_TRUE(TakeNow(60));
    std::future<bool> gone = TakeLater(100);
    UntilAsked(1);
    std::thread later([this] {
        bool waited = false;
        EXPECT_TRUE(room.Take(
            40, [] { return false; }, waited));
    });
    isOver = true;
    EXPECT_FALSE(gone.get());
    later.join();
    EXPECT_EQ(room.Taken(), 100U);
    room.GiveBack(100);
}

TEST_F(ArrivalRoomTest, NoMoreThanItsSizeIsEverTaken) {
    std::atomic<std::uint64_t> taken{0};
    std::atomic<std::uint64_t> most{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 200; ++round) {
                const std::uint64_t bytes =
                    1 + static_cast<std::uint64_t>(i * 13 + round * 7) % 100;
                bool waited = false;
                EXPECT_TRUE(room.Take(
                    bytes, [] { return false; }, waited));
                const std::uint64_t now = taken += bytes;
                for (std::uint64_t before = most; before < now;) {
                    if (most.compare_exchange_weak(before, now)) {
                        break;
                    }
                }
                taken -= bytes;
                room.GiveBack(bytes);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(most, 100U);
    EXPECT_EQ(room.Taken(), 0U);
}

}  // namespace
}  // namespace Brantel::Services
