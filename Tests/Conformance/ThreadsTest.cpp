#include "Conformance/EngineConformanceTest.h"
#include "Support/Waiting.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Engine {

TEST_P(EngineConformanceTest, ANotifyReachesThoseWhoWatchTheTrackAndNobodyElse) {
    std::vector<std::int64_t> seen;
    int others = 0;
    auto watch = Engine().Watch(7, [&](std::int64_t hint) { seen.push_back(hint); });
    const auto other = Engine().Watch(8, [&](std::int64_t) { ++others; });
    Engine().Notify(7, 41);
    Engine().Notify(7, 42);
    watch.reset();
    Engine().Notify(7, 43);
    EXPECT_EQ(seen, (std::vector<std::int64_t>{41, 42}));
    EXPECT_EQ(others, 0);
}

// Who has woken somebody may lose the processor to him.
TEST_P(EngineConformanceTest, ACallbackThatLastsHoldsUpNoSignalOfAnotherTrack) {
    std::promise<void> begun;
    std::promise<void> isOver;
    const auto slow = Engine().Watch(7, [&](std::int64_t) {
        begun.set_value();
        isOver.get_future().wait();
    });
    std::atomic<std::int64_t> heard = 0;
    const auto other = Engine().Watch(8, [&](std::int64_t hint) { heard = hint; });
    std::thread first([&] { Engine().Notify(7, 1); });
    begun.get_future().wait();
    std::thread second([&] { Engine().Notify(8, 2); });
    EXPECT_TRUE(Tests::Eventually([&] { return heard == 2; }));
    isOver.set_value();
    first.join();
    second.join();
}

TEST_P(EngineConformanceTest, WatchesComeAndGoWhileOthersNotify) {
    std::atomic<bool> stop = false;
    std::thread notifier([&] {
        while (!stop) {
            Engine().Notify(7, 1);
        }
    });
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> calls = 0;
        const auto watch = Engine().Watch(7, [&](std::int64_t) { ++calls; });
        EXPECT_TRUE(Tests::Eventually([&] { return calls > 0; }));
    }
    stop = true;
    notifier.join();
}

TEST_P(EngineConformanceTest, TracksAreWrittenAndReadAtTheSameTime) {
    constexpr int tracks = 3;
    constexpr int chunks = 150;
    std::vector<std::thread> threads;
    for (TrackId id = 1; id <= tracks; ++id) {
        Reserve(2, id);
        Engine().CreateSegment({id, LogKind::Ring, 1}, 1);
    }
    for (TrackId id = 1; id <= tracks; ++id) {
        threads.emplace_back([this, id] {
            for (int chunk = 0; chunk < chunks; ++chunk) {
                Append({id, LogKind::Ring, 1}, chunk, {"m", std::to_string(id * 1000 + chunk)});
            }
        });
        threads.emplace_back([this, id] {
            std::uint64_t seen = 0;
            while (seen < chunks) {
                const SegmentId segment{id, LogKind::Ring, 1};
                const SegmentInfo info = *Info(segment);
                if (info.count > seen) {
                    seen = info.count;
                    EXPECT_EQ(Read(segment, info.last)[1],
                              std::to_string(id * 1000 + info.last.timePoint));
                } else {
                    std::this_thread::yield();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_P(EngineConformanceTest, AReadOfASegmentThatIsReusedGivesItsOwnBytesOrGone) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    std::atomic<std::uint64_t> number = 1;
    std::atomic<bool> stop = false;
    Append(Ring(1), 1, {"m", std::string(60000, 'a')}, Durability::Mode::Os);
    std::thread reader([&] {
        while (!stop) {
            const std::uint64_t current = number;
            try {
                const std::vector<ChunkEntry> entries = Engine().ReadEntries(Ring(current));
                ASSERT_EQ(entries.size(), 1U);
                const char letter = static_cast<char>('a' + entries[0].timePoint % 26 - 1);
                EXPECT_EQ(Read(Ring(current), entries[0])[1], std::string(60000, letter));
            } catch (const EngineError& error) {
                EXPECT_EQ(error.GetKind(), EngineError::Kind::Gone) << error.what();
            }
        }
    });
    for (std::uint64_t next = 2; next < 60; ++next) {
        Engine().CreateSegment(Ring(next), 1);
        const char letter = static_cast<char>('a' + next % 26 - 1);
        Append(Ring(next), static_cast<std::int64_t>(next), {"m", std::string(60000, letter)},
               Durability::Mode::Os);
        number = next;
        Engine().RemoveSegment(Ring(next - 1), 1, 0);
    }
    stop = true;
    reader.join();
}

TEST_P(EngineConformanceTest, BatchesFromManyThreadsAreNeverMixed) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < 30; ++round) {
                const std::string value = std::to_string(thread * 1000 + round);
                const std::vector<RecordChange> changes{{"a", value}, {"b", value}};
                Engine().WriteRecords(changes);
                const std::vector<Record> both = Engine().ScanRecords("");
                ASSERT_EQ(both.size(), 2U);
                EXPECT_EQ(both[0].value, both[1].value);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace Brantel::Engine
