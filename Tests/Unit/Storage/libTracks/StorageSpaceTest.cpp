#include "Support/EngineList.h"
#include "Support/FaultyEngine.h"
#include "Support/LocalHarness.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

TEST_P(StorageTest, TheCapacityIsReportedAsReserved) {
    Create(7, 10000);
    long size = 0;
    storage->GetTrackSize(7, size);
    EXPECT_EQ(size, 12288);
    EXPECT_EQ(InfoOf(7).capacity(), 12288U);
    EXPECT_EQ(InfoOf(7).size(), 0U);
}

TEST_P(StorageTest, TheSizeIsWhatTheLiveChunksTake) {
    Create(7);
    Fill(7, {1, 2, 3}, 100);
    EXPECT_EQ(InfoOf(7).size(), 3 * CostOf(100));
    storage->ClearTrack(7);
    EXPECT_EQ(InfoOf(7).size(), 0U);
}

TEST_P(StorageTest, ANewTrackTakesItsSpaceAtOnceAndADeletedOneGivesItBack) {
    long before = 0;
    long during = 0;
    long after = 0;
    storage->GetRemainingSpace(before);
    Create(7, 8 << 20);
    storage->GetRemainingSpace(during);
    Delete(7);
    storage->GetRemainingSpace(after);
    EXPECT_GE(before - during, 8 << 20);
    EXPECT_EQ(after, before);
}

TEST_P(StorageTest, TheRemainingSpaceCanBeTakenByOneTrack) {
    long space = 0;
    storage->GetRemainingSpace(space);
    EXPECT_GT(space, 0);
    EXPECT_EQ(ErrorOf([&] { Create(7, space + (4 << 20)); }),
              "Track 7: size " + std::to_string(space + (4 << 20)) +
                  " is more than the remaining space, " + std::to_string(space) + " bytes");
    Create(7, space);
    EXPECT_EQ(InfoOf(7).capacity(), static_cast<std::uint64_t>(space));
}

TEST(StorageFreeSpaceTest, TheRemainingSpaceIsTheFreeSpaceOfTheDiskLessTheReserve) {
    for (const std::uint64_t keepFree : {std::uint64_t{0}, std::uint64_t{1} << 62U}) {
        Engine::LocalHarness harness(0, keepFree);
        Storage tracks(harness.GetEngine(), {});
        long space = -1;
        tracks.MakeTrackStorage()->GetRemainingSpace(space);
        EXPECT_EQ(space > 0, keepFree == 0);
        Protocol::TrackParameters in;
        Protocol::TrackParameters out;
        in.set_id(7);
        in.set_size(2 * static_cast<std::uint64_t>(space) + (1U << 30U));
        EXPECT_EQ(ErrorOf([&] { tracks.MakeTrackStorage()->CreateTrack(in, out); })
                      .find("Track 7: size " + std::to_string(in.size()) +
                            " is more than the remaining space, "),
                  0U);
    }
}

TEST_P(StorageTest, AFullTrackRecyclesItsOldestChunksExactly) {
    Create(7, 4096);
    const std::size_t quarter = 1024 - CostOf(0);
    ASSERT_EQ(CostOf(quarter), 1024U);
    Fill(7, {1, 2, 3, 4}, quarter);
    EXPECT_EQ(InfoOf(7).size(), 4096U);
    Fill(7, {5}, quarter);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{2, 3, 4, 5}));
    Fill(7, {6}, 3 * 1024 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{5, 6}));
    Fill(7, {7}, 0);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{6, 7}));
    EXPECT_EQ(BeginningOf(7), 6);
    EXPECT_EQ(CountOf(7, 0, 100), 2);
    EXPECT_EQ(DurationOf(7, 0, 100), 20);
}

TEST_P(StorageTest, ARecycledTrackIsTheSameAfterARestartAndACrash) {
    Create(7, 4096);
    for (std::int64_t time = 1; time <= 50; ++time) {
        Fill(7, {time}, 1024 - CostOf(0));
    }
    Restart();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{47, 48, 49, 50}));
    EXPECT_EQ(InfoOf(7).size(), 4096U);
    Crash();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{47, 48, 49, 50}));
    Fill(7, {51}, 1024 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{48, 49, 50, 51}));
}

TEST_P(StorageTest, AFullTrackThatStopsRefusesTheAppend) {
    Create(7, 4096);
    SetProperty(7, "storage.retention", "stop");
    Fill(7, {1, 2, 3}, 1024 - CostOf(0));
    EXPECT_EQ(ErrorOf([&] { Fill(7, {4}, 1032 - CostOf(0)); }),
              "Track 7: a chunk of 1032 bytes does not fit, 3072 of 4096 bytes are in use and its "
              "retention is stop");
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3}));
    Fill(7, {4}, 1024 - CostOf(0));
    SetProperty(7, "storage.retention", "loop");
    Fill(7, {5}, 1024 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{2, 3, 4, 5}));
}

// A server whose tracks stop unless they say otherwise.
class StorageStoppingTest : public StorageTest {
  protected:
    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.retention = TrackSettings::Retention::Stop;
        return options;
    }
};
INSTANTIATE_TEST_SUITE_P(Every, StorageStoppingTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageStoppingTest, AFullTrackStopsUnlessItsPropertySaysOtherwise) {
    Create(7, 4096);
    Fill(7, {1, 2, 3, 4}, 1024 - CostOf(0));
    EXPECT_NE(ErrorOf([&] { Fill(7, {5}, 1024 - CostOf(0)); }), "");
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3, 4}));
    SetProperty(7, "storage.retention", "loop");
    Fill(7, {5}, 1024 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{2, 3, 4, 5}));
}

// Small segments, so that tests reach what large tracks reach: many segments in both logs.
class StorageSegmentsTest : public StorageTest {
  protected:
    static constexpr std::int64_t capacity = 64 << 10;

    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.smallestSegmentBytes = 16 << 10;
        options.spareSegments = 8;
        options.entryCacheBytes = 20000;
        // Thousands of appends, and crashes of the server alone.
        options.durability.mode = Engine::Durability::Mode::Os;
        return options;
    }

    // The time points of a ring of chunks that take 512 bytes each, the last one at `last`.
    static std::vector<std::int64_t> RingUpTo(std::int64_t last) {
        std::vector<std::int64_t> times;
        for (std::int64_t time = std::max<std::int64_t>(1, last - capacity / 512 + 1); time <= last;
             ++time) {
            times.push_back(time);
        }
        return times;
    }
    void FillRing(std::int64_t from, std::int64_t to) {
        std::vector<std::int64_t> times;
        for (std::int64_t time = from; time <= to; ++time) {
            times.push_back(time);
        }
        Fill(7, times, 512 - CostOf(0));
    }
    // Protects single chunks of duration 10, ten of which each holds, ends all protections but
    // one of `kept` again in many places, and goes on for many laps.
    void HoldWithGaps(std::size_t kept) {
        std::vector<long> ids;
        FillRing(1, 128);
        for (std::int64_t time = 1; time <= 120; ++time) {
            ids.push_back(Protect(7, time, 0));
        }
        for (std::int64_t round = 0; round < 40; ++round) {
            for (std::size_t index = 0; index + 1 < ids.size(); ++index) {
                if (index % 40 == static_cast<std::size_t>(round) && index % kept != 0) {
                    Unprotect(ids[index]);
                }
            }
            FillRing(129 + round * 50, 129 + round * 50 + 49);
        }
    }
    std::size_t CountSegments() { return GetEngine().ListSegments(7).size(); }
};

INSTANTIATE_TEST_SUITE_P(Every, StorageSegmentsTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageSegmentsTest, ARingGoesOnForManyLapsInTheSegmentsThatAreReserved) {
    Create(7, capacity);
    for (std::int64_t lap = 0; lap < 10; ++lap) {
        FillRing(lap * 200 + 1, lap * 200 + 200);
        ASSERT_EQ(TimesOf(7), RingUpTo(lap * 200 + 200));
        ASSERT_EQ(InfoOf(7).size(), static_cast<std::uint64_t>(capacity));
        ASSERT_LE(CountSegments(), 10U);
    }
}

TEST_P(StorageSegmentsTest, ATrackUnderTheNumberOfADeletedOneKeepsItsFirstChunks) {
    Create(7, capacity);
    FillRing(1, 600);
    Delete(7);
    Create(7, capacity);
    FillRing(1, 20);
    Crash();
    EXPECT_EQ(TimesOf(7), RingUpTo(20));
    Restart();
    EXPECT_EQ(TimesOf(7), RingUpTo(20));
}

TEST_P(StorageSegmentsTest, AnAppendThatFindsNoSegmentForHeldChunksChangesNothing) {
    Close();
    StorageOptions options = MakeOptions();
    options.spareSegments = 3;
    tracks = std::make_unique<Storage>(GetEngine(), options);
    storage = tracks->MakeTrackStorage();
    Create(7, capacity);
    // A segment takes one large chunk, and a small one that nothing holds.
    constexpr std::size_t large = 4020;
    std::vector<std::int64_t> times;
    std::string error = "no error";
    for (std::int64_t time = 10; error == "no error"; time += 20) {
        times = TimesOf(7);
        error = ErrorOf([&] {
            Fill(7, {time}, 0);
            times = TimesOf(7);
            Fill(7, {time + 10}, large);
            Protect(7, time + 10, 0);
        });
    }
    EXPECT_EQ(error, "Track 7: all its segments hold protected chunks or wait to be removed");
    EXPECT_LT(InfoOf(7).size(), static_cast<std::uint64_t>(capacity) - CostOf(large));
    EXPECT_EQ(TimesOf(7), times);
    EXPECT_EQ(BeginningOf(7), 10);
}

TEST_P(StorageSegmentsTest, CountsAndDurationsSpanSegments) {
    Create(7, capacity);
    FillRing(1, 500);
    const std::int64_t first = 500 - capacity / 512 + 1;
    EXPECT_EQ(BeginningOf(7), first);
    for (std::int64_t in = first - 3; in < 503; in += 7) {
        EXPECT_EQ(CountOf(7, in, 501), 501 - std::max(in, first));
        EXPECT_EQ(DurationOf(7, in, 450),
                  10 * std::max<std::int64_t>(0, 450 - std::max(in, first)));
    }
}

TEST_P(StorageSegmentsTest, ManySegmentsAreFoundAgainAfterACrash) {
    Create(7, capacity);
    for (std::int64_t round = 0; round < 5; ++round) {
        FillRing(round * 77 + 1, round * 77 + 77);
        Crash();
        ASSERT_EQ(TimesOf(7), RingUpTo(round * 77 + 77));
        ASSERT_EQ(CountOf(7, 0, 10000), static_cast<long>(RingUpTo(round * 77 + 77).size()));
    }
}

TEST_P(StorageSegmentsTest, HeldChunksSurviveManyLaps) {
    Create(7, capacity);
    FillRing(1, 60);
    Protect(7, 20, 10);
    FillRing(61, 2000);
    std::vector<std::int64_t> expected;
    for (std::int64_t time = 11; time < 30; ++time) {
        expected.push_back(time);
    }
    for (std::int64_t time = 2000 - (capacity / 512 - 19) + 1; time <= 2000; ++time) {
        expected.push_back(time);
    }
    EXPECT_EQ(TimesOf(7), expected);
    EXPECT_EQ(Get(7, 25)->data().items(0).value(), Bytes(512 - CostOf(0), 25));
    Crash();
    EXPECT_EQ(TimesOf(7), expected);
    EXPECT_EQ(CountOf(7, 15, 2000), 15 + capacity / 512 - 19 - 1);
}

TEST_P(StorageSegmentsTest, AnEndedProtectionGivesItsSegmentsBack) {
    Create(7, capacity);
    FillRing(1, 100);
    const long first = Protect(7, 1, 50);
    const long second = Protect(7, 60, 20);
    FillRing(101, 400);
    Unprotect(first);
    EXPECT_EQ(CountOf(7, 0, 51), 51 - 51);
    EXPECT_EQ(CountOf(7, 0, 100), 29);
    Unprotect(second);
    EXPECT_EQ(CountOf(7, 0, 100), 0);
    FillRing(401, 800);
    EXPECT_EQ(TimesOf(7), RingUpTo(800));
    EXPECT_LE(CountSegments(), 10U);
}

TEST_P(StorageSegmentsTest, AHeldLogWithGapsFillsTheTrackAndSurvivesACrash) {
    Create(7, capacity);
    HoldWithGaps(12);
    const std::uint64_t size = InfoOf(7).size();
    EXPECT_GT(size, static_cast<std::uint64_t>(capacity) - 512);
    const std::vector<std::int64_t> times = TimesOf(7);
    Crash();
    EXPECT_EQ(TimesOf(7), times);
    EXPECT_EQ(InfoOf(7).size(), size);
    EXPECT_EQ(size, times.size() * 512);
}

// Notes when records are written while held chunks are not flushed that these may name.
class FlushWatch : public Engine::FaultyEngine {
  public:
    using FaultyEngine::FaultyEngine;

    void Append(const Engine::SegmentId& id, Engine::Epoch epoch, const Engine::ChunkEntry& entry,
                std::span<const std::string_view> parts,
                const Engine::Durability& durability) override {
        FaultyEngine::Append(id, epoch, entry, parts, durability);
        if (id.log == Engine::LogKind::Held) {
            unflushed.insert(id);
            times.insert(entry.timePoint);
            ++copies;
        }
    }
    void Flush(const Engine::SegmentId& id) override {
        FaultyEngine::Flush(id);
        unflushed.erase(id);
    }
    bool WriteRecords(std::span<const Engine::RecordChange> changes) override {
        early += unflushed.size();
        return FaultyEngine::WriteRecords(changes);
    }

    std::set<Engine::SegmentId> unflushed;
    std::set<std::int64_t> times;
    std::size_t copies = 0;
    std::size_t early = 0;
};

// A store with so few segments to spare that protections with gaps make them run short.
class StoragePackingTest : public StorageSegmentsTest {
  protected:
    void SetUp() override {
        StorageSegmentsTest::SetUp();
        Close();
        watch.emplace(harness->GetEngine());
        OpenWatched();
    }
    void TearDown() override { Close(); }

    void OpenWatched() {
        StorageOptions options = MakeOptions();
        options.spareSegments = 3;
        tracks = std::make_unique<Storage>(*watch, options);
        storage = tracks->MakeTrackStorage();
    }

    std::optional<FlushWatch> watch;
};

INSTANTIATE_TEST_SUITE_P(Every, StoragePackingTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StoragePackingTest, AHeldLogWithGapsIsPackedWhenSegmentsRunShort) {
    Create(7, capacity);
    HoldWithGaps(30);
    EXPECT_GT(watch->copies, watch->times.size());  // some were copied again
    const std::vector<std::int64_t> times = TimesOf(7);
    EXPECT_EQ(InfoOf(7).size(), times.size() * 512);
    Close();
    OpenWatched();
    EXPECT_EQ(TimesOf(7), times);
}

TEST_P(StoragePackingTest, HeldChunksAreFlushedBeforeARecordNamesTheirCopies) {
    Create(7, capacity);
    HoldWithGaps(30);
    EXPECT_GT(watch->copies, watch->times.size());
    EXPECT_EQ(watch->early, 0U);
}

TEST_P(StorageSegmentsTest, AGrownTrackKeepsItsChunksAndRecyclesLater) {
    Create(7, capacity);
    FillRing(1, 300);
    const std::vector<std::int64_t> before = TimesOf(7);
    Grow(7, 2 * capacity);
    EXPECT_EQ(TimesOf(7), before);
    FillRing(301, 300 + capacity / 512);
    EXPECT_EQ(BeginningOf(7), before.front());
    EXPECT_EQ(InfoOf(7).size(), 2U * capacity);
    Restart();
    EXPECT_EQ(InfoOf(7).capacity(), 2U * capacity);
    EXPECT_EQ(InfoOf(7).size(), 2U * capacity);
}

TEST_P(StorageSegmentsTest, ClearingKeepsHeldChunksOfManySegments) {
    Create(7, capacity);
    FillRing(1, 128);
    Protect(7, 15, 90);
    storage->ClearTrack(7);
    EXPECT_EQ(BeginningOf(7), 6);
    EXPECT_EQ(CountOf(7, 0, 1000), 99);
    EXPECT_EQ(ErrorOf([&] { Append(7, 104, 1); }),
              "Track 7: time point 104 is not after the last one, 104");
    FillRing(129, 400);
    EXPECT_EQ(CountOf(7, 0, 129), 99);
    EXPECT_EQ(InfoOf(7).size(), static_cast<std::uint64_t>(capacity));
    Crash();
    EXPECT_EQ(CountOf(7, 0, 129), 99);
}

}  // namespace Brantel::Tracks
