#include "Support/Waiting.h"

#include <libServices/ArrivalRoom.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <future>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

class ArrivalRoomTest : public testing::Test {
  protected:
    // A message that leaves at the end.
    class Arriving : public ArrivingMessage {
      public:
        Arriving(ArrivalRoom& room, std::uint64_t bytes) : room(room) { room.Enter(*this, bytes); }
        Arriving(const Arriving&) = delete;
        Arriving& operator=(const Arriving&) = delete;
        ~Arriving() {
            if (IsUnderWay()) {
                room.Leave(*this);
            }
        }

      private:
        ArrivalRoom& room;
    };

    // Takes room on a thread of its own; ready once it has it, or was told that it is over.
    std::future<bool> TakeLater(ArrivingMessage& message, std::uint64_t bytes) {
        return std::async(std::launch::async, [this, &message, bytes] {
            bool waited = false;
            const bool taken = room.Take(
                message, bytes,
                [this] {
                    ++asked;
                    return isOver.load();
                },
                waited);
            return taken && waited;
        });
    }
    // Whether it is there without a wait.
    bool TakeNow(ArrivingMessage& message, std::uint64_t bytes) {
        bool waited = false;
        return room.Take(
                   message, bytes, [] { return true; }, waited) &&
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
    // While `first` has 60, `large` waits for what it wants, and `small` for 1 behind it; then
    // `first` leaves and `large` gets its bytes. The answer is that of `small`, which has waited.
    std::future<bool> LetTwoWait(Arriving& first, Arriving& large, std::uint64_t wanted,
                                 Arriving& small) {
        EXPECT_TRUE(TakeNow(first, 60));
        std::future<bool> largeWaits = TakeLater(large, wanted);
        UntilAsked(1);
        std::future<bool> smallWaits = TakeLater(small, 1);
        UntilAsked(4);
        EXPECT_FALSE(IsReady(smallWaits));
        room.Leave(first);
        EXPECT_TRUE(largeWaits.get());
        return smallWaits;
    }

    ArrivalRoom room{100};
    std::atomic<bool> isOver{false};
    std::atomic<int> asked{0};
};

TEST_F(ArrivalRoomTest, WhatFitsIsTakenAtOnce) {
    Arriving first(room, 60);
    Arriving second(room, 40);
    EXPECT_TRUE(TakeNow(first, 60));
    EXPECT_TRUE(TakeNow(second, 40));
    EXPECT_EQ(room.Taken(), 100U);
    room.Leave(first);
    EXPECT_EQ(room.Taken(), 40U);
    EXPECT_FALSE(room.IsAwaited());
}

TEST_F(ArrivalRoomTest, WhatDoesNotFitWaitsUntilSomeIsGivenBack) {
    Arriving first(room, 60);
    Arriving second(room, 41);
    EXPECT_TRUE(TakeNow(first, 60));
    std::future<bool> waiting = TakeLater(second, 41);
    UntilAsked(2);
    EXPECT_TRUE(room.IsAwaited());
    EXPECT_FALSE(IsReady(waiting));
    room.Leave(first);
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(room.Taken(), 41U);
}

TEST_F(ArrivalRoomTest, WhatIsOnlyAnnouncedKeepsNothingFromOthers) {
    Arriving announced(room, 60);
    Arriving alsoAnnounced(room, 60);
    Arriving other(room, 30);
    EXPECT_TRUE(TakeNow(announced, 1));
    EXPECT_TRUE(TakeNow(alsoAnnounced, 1));
    EXPECT_TRUE(TakeNow(other, 30));
}

TEST_F(ArrivalRoomTest, TheOldestCanAlwaysBeFinished) {
    Arriving oldest(room, 60);
    Arriving younger(room, 60);
    EXPECT_TRUE(TakeNow(oldest, 10));
    EXPECT_TRUE(TakeNow(younger, 40));
    // Free is more than that, but not to spare.
    std::future<bool> waiting = TakeLater(younger, 1);
    UntilAsked(1);
    EXPECT_TRUE(TakeNow(oldest, 50));
    EXPECT_FALSE(IsReady(waiting));
    room.Leave(oldest);
    EXPECT_TRUE(waiting.get());
}

TEST_F(ArrivalRoomTest, WhatIsCompleteKeepsNoMoreThanItHas) {
    Arriving oldest(room, 60);
    Arriving younger(room, 90);
    EXPECT_TRUE(TakeNow(oldest, 10));
    std::future<bool> waiting = TakeLater(younger, 90);
    UntilAsked(1);
    room.Complete(oldest);
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(room.Taken(), 100U);
}

TEST_F(ArrivalRoomTest, WhoComesLaterDoesNotPassWhoWaits) {
    Arriving first(room, 60);
    Arriving large(room, 100);
    Arriving small(room, 1);
    std::future<bool> smallWaits = LetTwoWait(first, large, 100, small);
    UntilAsked(2);
    EXPECT_FALSE(IsReady(smallWaits));
    room.Leave(large);
    EXPECT_TRUE(smallWaits.get());
}

TEST_F(ArrivalRoomTest, WhoComesLaterWaitsAlsoForWhatWouldFit) {
    Arriving first(room, 60);
    Arriving large(room, 50);
    Arriving small(room, 1);
    EXPECT_TRUE(LetTwoWait(first, large, 50, small).get());
}

TEST_F(ArrivalRoomTest, WhatHasBegunPassesWhatHasNot) {
    Arriving first(room, 60);
    Arriving fresh(room, 80);
    Arriving begun(room, 20);
    EXPECT_TRUE(TakeNow(first, 60));
    EXPECT_TRUE(TakeNow(begun, 10));
    std::future<bool> freshWaits = TakeLater(fresh, 80);
    UntilAsked(1);
    EXPECT_TRUE(TakeNow(begun, 10));
    EXPECT_FALSE(IsReady(freshWaits));
    room.Leave(first);
    room.Leave(begun);
    EXPECT_TRUE(freshWaits.get());
}

TEST_F(ArrivalRoomTest, WhoseConnectionEndsWaitsNoLongerAndHoldsUpNobody) {
    Arriving first(room, 60);
    Arriving gone(room, 100);
    Arriving later(room, 40);
    EXPECT_TRUE(TakeNow(first, 60));
    std::future<bool> goneWaits = TakeLater(gone, 100);
    UntilAsked(1);
    isOver = true;
    EXPECT_FALSE(goneWaits.get());
    room.Leave(gone);
    EXPECT_TRUE(TakeNow(later, 40));
    EXPECT_EQ(room.Taken(), 100U);
}

// Messages of all sizes, in steps of all sizes: all of them end, although together they want many
// times the room.
TEST_F(ArrivalRoomTest, NoMoreThanItsSizeIsEverTakenAndEveryMessageEnds) {
    std::array<std::uint64_t, 8> most{};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 200; ++round) {
                const std::uint64_t bytes =
                    1 + static_cast<std::uint64_t>(i * 13 + round * 7) % 100;
                const std::uint64_t step = 1 + static_cast<std::uint64_t>(i + round) % 30;
                Arriving message(room, bytes);
                while (message.Taken() < bytes) {
                    bool waited = false;
                    EXPECT_TRUE(room.Take(
                        message, std::min(step, bytes - message.Taken()), [] { return false; },
                        waited));
                    std::uint64_t& highest = most.at(static_cast<std::size_t>(i));
                    highest = std::max(highest, room.Taken());
                }
                room.Complete(message);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(*std::max_element(most.begin(), most.end()), 100U);
    EXPECT_EQ(room.Taken(), 0U);
}

}  // namespace
}  // namespace Brantel::Services
