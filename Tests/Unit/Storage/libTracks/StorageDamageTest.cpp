#include "Support/FaultyEngine.h"
#include "Support/MemoryHarness.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <libEngine/ReadOnlyEngine.h>
#include <libTracks/StoreCheck.h>
#include <libTracks/StoreFindings.h>
#include <libTracks/TrackSettings.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Tracks {

using Fault = Engine::FaultyEngine::Fault;

TEST_P(StorageTest, ADamagedChunkIsAnErrorThatNamesTrackTimePointAndFile) {
    Create(7);
    Fill(7, {10, 20, 30}, 100);
    const Engine::SegmentId segment{7, Engine::LogKind::Ring, 1};
    harness->DamageChunk(segment, GetEngine().ReadEntries(segment)[1], 1);
    const std::string error = ErrorOf([&] { Get(7, 20); });
    EXPECT_EQ(error.find("Track 7: the chunk at 20 is damaged, in " +
                         GetEngine().Describe(segment) + " at offset "),
              0U)
        << error;
    ASSERT_EQ(logged.size(), 1U);
    EXPECT_EQ(logged[0], error);
}

TEST_P(StorageTest, ADamagedChunkCostsThatChunkOnly) {
    Create(7);
    Fill(7, {10, 20, 30}, 100);
    const Engine::SegmentId segment{7, Engine::LogKind::Ring, 1};
    harness->DamageChunk(segment, GetEngine().ReadEntries(segment)[1], 0);
    EXPECT_NE(ErrorOf([&] { Next(7, 10); }), "no error");
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30}));
    EXPECT_EQ(Get(7, 10)->data().items(0).value(), Bytes(100, 10));
    EXPECT_EQ(Next(7, 20)->data().items(0).value(), Bytes(100, 30));
    EXPECT_EQ(Previous(7, 20)->data().items(0).value(), Bytes(100, 10));
    Fill(7, {40}, 100);
    EXPECT_EQ(CountOf(7, 0, 100), 4);
}

TEST_P(StorageTest, AHeldChunkThatIsDamagedDoesNotStopTheRing) {
    Create(7, 4096);
    // The last one begins a page of its own: an engine may write the open page again.
    Fill(7, {10, 20, 30, 40, 50}, 1024 - CostOf(0));
    Protect(7, 20, 15);
    const Engine::SegmentId segment{7, Engine::LogKind::Ring, 1};
    harness->DamageChunk(segment, GetEngine().ReadEntries(segment)[1], 1);
    Fill(7, {60, 70}, 1024 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{30, 50, 60, 70}));
    ASSERT_EQ(logged.size(), 1U);
    EXPECT_EQ(logged[0].find("Track 7: the protected chunk at 20 is damaged"), 0U) << logged[0];
}

// What an engine's failures do to a track: an error, and what was there stays.
class StorageFaultsTest : public StorageTest {
  protected:
    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.smallestSegmentBytes = 16 << 10;
        options.spareSegments = 8;
        return options;
    }
    Engine::FaultyEngine& GetFaulty() {
        return dynamic_cast<Engine::FaultyMemoryHarness&>(*harness).GetFaulty();
    }
    std::vector<std::int64_t> Range(std::int64_t from, std::int64_t to) {
        std::vector<std::int64_t> times;
        for (std::int64_t time = from; time <= to; ++time) {
            times.push_back(time);
        }
        return times;
    }
};

INSTANTIATE_TEST_SUITE_P(Memory, StorageFaultsTest,
                         testing::Values(Engine::FaultyMemoryHarnessFactory()),
                         testing::PrintToStringParamName());

TEST_P(StorageFaultsTest, AFailedAppendIsAnErrorAndTheNextOneGoesOn) {
    Create(7);
    for (const Fault fault : {Fault::FailBefore, Fault::FailAfter}) {
        Fill(7, {EndOf(7) + 1});
        const std::vector<std::int64_t> before = TimesOf(7);
        GetFaulty().Inject(Engine::Call::Append, fault);
        const std::string error = ErrorOf([&] { Fill(7, {1000}); });
        EXPECT_EQ(error.find("Track 7: injected fault"), 0U) << error;
        EXPECT_EQ(TimesOf(7), before);
        Fill(7, {before.back() + 1});
        EXPECT_EQ(TimesOf(7).size(), before.size() + 1);
    }
    Crash();
    EXPECT_EQ(TimesOf(7).size(), 4U);
}

TEST_P(StorageFaultsTest, WhatAFailedAppendLeftBehindIsVoidAfterACrash) {
    Create(7);
    Fill(7, {1, 2});
    GetFaulty().Inject(Engine::Call::Append, Fault::FailAfter);
    GetFaulty().Inject(Engine::Call::Seal, Fault::FailBefore, 1, 0);
    EXPECT_NE(ErrorOf([&] { Fill(7, {5}); }), "no error");
    EXPECT_NE(ErrorOf([&] { Fill(7, {4}); }), "no error");
    Fill(7, {4});
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 4}));
    Crash();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 4}));
    EXPECT_EQ(CountOf(7, 0, 100), 3);
    EXPECT_EQ(InfoOf(7).size(), 3 * CostOf(0));
}

TEST_P(StorageFaultsTest, EachEngineCallFailingOnceLeavesTheTrackAsItWasOrDone) {
    using Engine::Call;
    for (const Call call : {Call::Append, Call::CreateSegment, Call::Seal, Call::RemoveSegment,
                            Call::Flush, Call::ReadChunk, Call::WriteRecords}) {
        for (const Fault fault : {Fault::FailBefore, Fault::FailAfter}) {
            for (std::uint64_t n = 1; n <= 4; ++n) {
                Create(7, 64 << 10);
                Fill(7, Range(1, 100), 512 - CostOf(0));
                const long id = Protect(7, 1, 40);
                GetFaulty().Inject(call, fault, n);
                std::vector<std::int64_t> times = Range(1, 100);
                for (std::int64_t time = 101; time <= 300; ++time) {
                    const std::vector<std::int64_t> before = TimesOf(7);
                    if (ErrorOf([&] { Fill(7, {time}, 512 - CostOf(0)); }) != "no error") {
                        ASSERT_EQ(TimesOf(7), before);
                    } else {
                        ASSERT_EQ(TimesOf(7).back(), time);
                    }
                }
                GetFaulty().Heal();
                ASSERT_EQ(CountOf(7, 0, 41), 40);
                ASSERT_EQ(InfoOf(7).size(), 64U << 10U);
                const std::vector<std::int64_t> before = TimesOf(7);
                Crash();
                ASSERT_EQ(TimesOf(7), before);
                Unprotect(id);
                Delete(7);
            }
        }
    }
}

// Chunks of which a segment takes one, and leaves much of its room: segments run short before the
// capacity is used up, and the ring's front moves before the append.
class StorageShortageTest : public StorageFaultsTest {
  protected:
    StorageOptions MakeOptions() override {
        StorageOptions options = StorageFaultsTest::MakeOptions();
        options.spareSegments = 3;
        return options;
    }
    // Of the store as it is left by a crash.
    std::vector<std::string> FindingsAfterACrash() {
        Close();
        harness->Crash();
        std::vector<std::string> texts;
        StoreFindings findings([&texts](const std::string& text) { texts.push_back(text); });
        Engine::ReadOnlyEngine shown(GetEngine());
        StoreCheck(shown, findings).Run();
        Open();
        return texts;
    }
};

INSTANTIATE_TEST_SUITE_P(Memory, StorageShortageTest,
                         testing::Values(Engine::FaultyMemoryHarnessFactory()),
                         testing::PrintToStringParamName());

TEST_P(StorageShortageTest, WhatWasDroppedForAnAppendThatFailedIsNotMissing) {
    Create(7, 64 << 10);
    Fill(7, Range(1, 40), 5000);
    for (int failures = 1; failures <= 3; ++failures) {
        const std::vector<std::int64_t> before = TimesOf(7);
        GetFaulty().Inject(Engine::Call::Append, Fault::FailBefore, 1, 0);
        for (int count = 0; count < failures; ++count) {
            EXPECT_NE(ErrorOf([&] { Fill(7, {1000}, 5000); }), "no error");
        }
        EXPECT_LT(TimesOf(7).size(), before.size());
        EXPECT_EQ(FindingsAfterACrash(), std::vector<std::string>());
        GetFaulty().Heal();
        Fill(7, Range(before.back() + 1, before.back() + 10), 5000);
    }
}

TEST_P(StorageFaultsTest, AFailedProtectionHoldsNothing) {
    Create(7);
    Fill(7, {1, 2, 3});
    GetFaulty().Inject(Engine::Call::WriteRecords, Fault::FailBefore, 2);
    EXPECT_NE(ErrorOf([&] { Protect(7, 1, 1); }), "no error");
    storage->ClearTrack(7);
    EXPECT_TRUE(TimesOf(7).empty());
}

TEST_P(StorageFaultsTest, AFailedClearChangesNothing) {
    Create(7);
    Fill(7, {1, 2, 3});
    GetFaulty().Inject(Engine::Call::WriteRecords, Fault::FailBefore);
    EXPECT_NE(ErrorOf([&] { storage->ClearTrack(7); }), "no error");
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3}));
    Fill(7, {4});
    storage->ClearTrack(7);
    EXPECT_TRUE(TimesOf(7).empty());
}

TEST_P(StorageFaultsTest, ATrackThatCantBeLoadedSaysWhyAndLeavesTheOthersAlone) {
    Create(7);
    Create(8);
    Fill(8, {1});
    Close();
    // The first time the server looks for the newest epoch, the second it loads the track.
    GetFaulty().Inject(Engine::Call::ListSegments, Fault::FailBefore, 1);
    GetFaulty().Inject(Engine::Call::ListSegments, Fault::FailBefore, 3);
    Open();
    EXPECT_EQ(ErrorOf([&] { EndOf(7); }),
              "Track 7: it can't be used: injected fault in call 7 before it");
    EXPECT_EQ(TimesOf(8), (std::vector<std::int64_t>{1}));
    Restart();
    EXPECT_EQ(EndOf(7), -1);
}

TEST_P(StorageFaultsTest, WithoutAWordTheDurabilityIsAlways) {
    EXPECT_EQ(StorageOptions().durability, TrackSettings::ParseDurability("always"));
}

TEST_P(StorageFaultsTest, TheDurabilityOfATrackReachesTheEngine) {
    class Spy : public Engine::FaultyEngine {
      public:
        using Engine::FaultyEngine::FaultyEngine;
        void Append(const Engine::SegmentId& id, Engine::Epoch epoch,
                    const Engine::ChunkEntry& entry, std::span<const std::string_view> parts,
                    const Engine::Durability& durability) override {
            seen.push_back(TrackSettings::DescribeDurability(durability));
            FaultyEngine::Append(id, epoch, entry, parts, durability);
        }
        std::vector<std::string> seen;
    };
    Close();
    Spy spy(GetEngine());
    {
        StorageOptions options;
        options.durability = TrackSettings::ParseDurability("os");
        tracks = std::make_unique<Storage>(spy, options);
        storage = tracks->MakeTrackStorage();
        Create(7);
        Fill(7, {1});
        SetProperty(7, "storage.durability", "interval:200ms");
        Fill(7, {2});
        SetProperty(7, "storage.durability", "always");
        Fill(7, {3});
    }
    EXPECT_EQ(spy.seen, (std::vector<std::string>{"os", "interval:200ms", "always"}));
    Close();
}

}  // namespace Brantel::Tracks
