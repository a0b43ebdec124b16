// A store whose records are damaged or lost, one by one. The segments are whole.

#include "Support/MemoryHarness.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <libTracks/StorageOptions.h>
#include <libTracks/StoreFindings.h>
#include <libTracks/StoreRecovery.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

using testing::HasSubstr;

class RecordRepairTest : public StorageTest {
  protected:
    // As if it had never been written.
    void Lose(const std::vector<std::string>& keys) {
        Close();
        std::vector<Engine::RecordChange> changes;
        for (const std::string& key : keys) {
            ASSERT_TRUE(GetEngine().ReadRecord(key)) << key;
            changes.push_back({key, std::nullopt});
        }
        ASSERT_TRUE(GetEngine().WriteRecords(changes));
        logged.clear();
        Open();
    }
    std::string Logged() const {
        std::string text;
        for (const std::string& line : logged) {
            text += line + "\n";
        }
        return text;
    }
};

INSTANTIATE_TEST_SUITE_P(Memory, RecordRepairTest, testing::Values(Engine::MemoryHarnessFactory()),
                         testing::PrintToStringParamName());

TEST_P(RecordRepairTest, AWholeStoreIsOpenedWithoutAWord) {
    Create(7);
    Fill(7, {1, 2, 3});
    Restart();
    EXPECT_EQ(Logged(), "");
}

TEST_P(RecordRepairTest, ALostTrackRecordIsMadeAgainFromTheSegments) {
    Create(7, 5 << 20);
    Fill(7, {1, 2, 3}, 100);
    SetProperty(7, "camera", "north");
    Lose({"track/7"});
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3}));
    EXPECT_GE(InfoOf(7).capacity(), 5U << 20U);
    EXPECT_EQ(PropertiesOf(7), (Blocks{{"camera", "north"}}));
    EXPECT_THAT(Logged(), HasSubstr("Track 7: its record is lost and was made again"));
    Fill(7, {4});
    Restart();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3, 4}));
}

TEST_P(RecordRepairTest, WhatARingHadRecycledStaysGone) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40, 50}, 1024 - CostOf(0));
    const std::vector<std::int64_t> before = TimesOf(7);
    ASSERT_EQ(before.size(), 4U);
    Lose({"track/7"});
    EXPECT_EQ(TimesOf(7), before);
}

TEST_P(RecordRepairTest, ATrackWithoutPropertiesRecyclesNothing) {
    Create(7, 4096);
    Fill(7, {10, 20, 30}, 1024 - CostOf(0));
    SetProperty(7, "camera", "north");
    Lose({"track/7", "properties/7"});
    EXPECT_EQ(PropertiesOf(7), (Blocks{{"storage.retention", "stop"}}));
    EXPECT_THAT(Logged(), HasSubstr("Track 7: its properties are lost"));
}

TEST_P(RecordRepairTest, ProtectionsThatAreThereAreKeptAndNoneStandsIn) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, 1024 - CostOf(0));
    const long id = Protect(7, 10, 5);
    Fill(7, {50, 60}, 1024 - CostOf(0));
    Lose({"track/7"});
    Protocol::ProtectionInfos infos;
    storage->ListProtections(infos);
    ASSERT_EQ(infos.infos_size(), 1);
    EXPECT_EQ(infos.infos(0).handle(), static_cast<std::uint64_t>(id));
    EXPECT_EQ(TimesOf(7).front(), 10);
}

TEST_P(RecordRepairTest, WhenAllRecordsAreLostIdentifiersGoOnFarAway) {
    Create(7);
    Fill(7, {1});
    const long id = Protect(7, 1, 5);
    Lose({"track/7", "store", "ids/command", "ids/protection", "protection/" + std::to_string(id)});
    EXPECT_GT(Protect(7, 1, 5), 1'000'000'000);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1}));
}

TEST_P(RecordRepairTest, ANewWriterOutlivesALostEpoch) {
    Create(7);
    for (std::int64_t time = 1; time <= 3; ++time) {
        Fill(7, {time});
        Restart();
    }
    Lose({"store"});
    Fill(7, {4});
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3, 4}));
}

TEST_P(RecordRepairTest, ARecoveryMakesATrackAgainWhoseRecordCanNotBeRead) {
    Create(7);
    Fill(7, {1, 2, 3}, 100);
    Close();
    const std::vector<Engine::RecordChange> change{{"track/7", "\x02"}};
    ASSERT_TRUE(GetEngine().WriteRecords(change));
    std::string texts;
    StoreFindings findings([&texts](const std::string& text) { texts += text + "\n"; });
    auto target = GetParam().make(limit);
    EXPECT_EQ(StoreRecovery(GetEngine(), target->GetEngine(), findings).Run().chunks, 3U);
    EXPECT_THAT(texts, HasSubstr("The store's record track/7 can't be read: a track record of "
                                 "version 2, known is 1; it is left out\nTrack 7: its record is "
                                 "lost and was made again from its segments"));
    harness = std::move(target);
    Open();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_P(RecordRepairTest, AnUnfinishedRecoveryIsNotServed) {
    Close();
    const std::vector<Engine::RecordChange> mark{{"recovery", "1"}};
    ASSERT_TRUE(GetEngine().WriteRecords(mark));
    EXPECT_EQ(ErrorOf([&] { Open(); }),
              "The store is what a recovery that was cut off has left: remove it and recover "
              "again");
}

}  // namespace Brantel::Tracks
