#include "Support/FaultyEngine.h"
#include "Support/MemoryHarness.h"
#include "Support/Waiting.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace Brantel::Tracks {

namespace {

bool Wait(BrantelStorageApi::ITrackReader& reader, std::int64_t timePoint, int timeout) {
    bool result = false;
    reader.Wait(At(timePoint), timeout, result);
    return result;
}

}  // namespace

TEST_P(StorageTest, WaitIsTrueAtOnceWhenALaterChunkExists) {
    Create(7);
    Fill(7, {10});
    const Reader reader = OpenReader(7);
    EXPECT_TRUE(Wait(*reader, 9, 0));
    EXPECT_TRUE(Wait(*reader, -1, -1));
    EXPECT_FALSE(Wait(*reader, 10, 0));
}

TEST_P(StorageTest, WaitWithATimeoutOfZeroOnlyLooks) {
    Create(7);
    ClientConnection connection;
    connection.isGone = []() -> bool { throw std::runtime_error("it waits"); };
    const Reader reader = OpenReader(7, connection);
    for (int look = 0; look < 1000; ++look) {
        EXPECT_FALSE(Wait(*reader, -1, 0));
    }
}

TEST_P(StorageTest, WaitIsNotSatisfiedByAnEarlierChunk) {
    Create(7);
    std::atomic<bool> waits = false;
    ClientConnection connection;
    connection.isGone = [&] { return waits = true, false; };
    const Reader reader = OpenReader(7, connection);
    std::thread appender([&] {
        EXPECT_TRUE(Tests::Eventually([&] { return waits.load(); }));
        Fill(7, {10, 20, 30});
    });
    EXPECT_TRUE(Wait(*reader, 20, -1));
    EXPECT_EQ(EndOf(7), 40);
    appender.join();
}

TEST_P(StorageTest, WaitIsFalseAfterItsTimeout) {
    Create(7);
    const Reader reader = OpenReader(7);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(Wait(*reader, -1, 30));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

TEST_P(StorageTest, WaitIsWokenByTheAppend) {
    Create(7);
    const Reader reader = OpenReader(7);
    const Writer writer = OpenWriter(7);
    for (std::int64_t time = 0; time < 20; ++time) {
        std::thread appender([&] { writer->Append(MakeChunk(time, 1)); });
        EXPECT_TRUE(Wait(*reader, time - 1, -1));
        appender.join();
    }
}

// A reader that nobody wakes looks again by itself every 200 ms.
TEST_P(StorageTest, WaitIsWokenByTheAppendAndNotByItsNextLook) {
    constexpr int rounds = 30;
    Create(7);
    const Writer writer = OpenWriter(7);
    std::atomic<int> waiting = -1;
    int round = 0;
    ClientConnection connection;
    connection.isGone = [&] { return waiting = round, false; };
    const Reader reader = OpenReader(7, connection);
    const auto begin = std::chrono::steady_clock::now();
    for (; round < rounds; ++round) {
        std::thread appender([&, time = round] {
            EXPECT_TRUE(Tests::Eventually([&] { return waiting == time; }));
            writer->Append(MakeChunk(time, 1));
        });
        EXPECT_TRUE(Wait(*reader, round - 1, -1));
        appender.join();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, rounds * std::chrono::milliseconds(100));
}

TEST_P(StorageTest, WaitEndsWithinASecondWithAnErrorWhenItsClientHasGone) {
    Create(7);
    std::atomic<bool> isGone = false;
    std::atomic<bool> waits = false;
    ClientConnection connection;
    connection.isGone = [&] { return waits = true, isGone.load(); };
    const Reader reader = OpenReader(7, connection);
    std::string error;
    std::thread waiter([&] { error = ErrorOf([&] { Wait(*reader, 0, -1); }); });
    EXPECT_TRUE(Tests::Eventually([&] { return waits.load(); }));
    const auto begin = std::chrono::steady_clock::now();
    isGone = true;
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(error, "Track 7: the wait was ended, the client has gone");
}

TEST_P(StorageTest, WaitEndsWithinASecondWithAnErrorWhenTheServerStops) {
    Create(7);
    std::atomic<bool> waits = false;
    ClientConnection connection;
    connection.isGone = [&] { return waits = true, false; };
    const Reader reader = OpenReader(7, connection);
    std::string error;
    std::thread waiter([&] { error = ErrorOf([&] { Wait(*reader, 0, -1); }); });
    EXPECT_TRUE(Tests::Eventually([&] { return waits.load(); }));
    const auto begin = std::chrono::steady_clock::now();
    tracks->Stop();
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(error, "Track 7: the wait was ended, the server stops");
}

TEST_P(StorageTest, AfterTheStopEverythingButWaitsAndCommandsGoesOn) {
    Create(7);
    tracks->Stop();
    Fill(7, {1});
    EXPECT_EQ(TimesOf(7).size(), 1U);
    EXPECT_EQ(ErrorOf([&] { Create(8); }), "Track 8: the server stops");
}

}  // namespace Brantel::Tracks
