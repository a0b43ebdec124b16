// Protections as they are stored, whatever somebody has written there.

#include "Support/MemoryHarness.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <libEngine/ReadOnlyEngine.h>
#include <libTracks/Protections.h>
#include <libTracks/StoreCheck.h>
#include <libTracks/StoreFindings.h>
#include <libTracks/StoreRecovery.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

class ProtectionsTest : public StorageTest {
  protected:
    static constexpr std::int64_t endOfTime = std::numeric_limits<std::int64_t>::max();

    void SetUp() override {
        StorageTest::SetUp();
        Create(7);
        Create(8);
        Fill(7, {10, 20, 30}, 100);
        Fill(8, {1});
        id = Protect(7, 10, 10);
    }
    // The store is opened again with this in the place of the protection.
    void Store(const Protections::Stretch& stretch) {
        Close();
        Write(Protections::Encode(7, stretch));
        logged.clear();
        Open();
    }
    void Write(const std::string& bytes) {
        const std::vector<Engine::RecordChange> change{{Protections::Key(id), bytes}};
        ASSERT_TRUE(GetEngine().WriteRecords(change));
    }
    // Into a new store, which is then the one that is open.
    StoreRecovery::Sums Recover() {
        Close();
        auto target = GetParam().make(limit);
        Engine::ReadOnlyEngine shown(GetEngine());
        const StoreRecovery::Sums sums = StoreRecovery(shown, target->GetEngine(), findings).Run();
        harness = std::move(target);
        Open();
        return sums;
    }
    std::string Named(const std::string& fault) const {
        return "protection " + std::to_string(id) + ", " + fault;
    }
    std::vector<std::uint64_t> ListProtections() {
        Protocol::ProtectionInfos infos;
        storage->ListProtections(infos);
        std::vector<std::uint64_t> handles;
        for (const Protocol::ProtectionInfo& info : infos.infos()) {
            handles.push_back(info.handle());
        }
        return handles;
    }

    long id = 0;
    std::vector<std::string> texts;
    StoreFindings findings{[this](const std::string& text) { texts.push_back(text); }};
};

INSTANTIATE_TEST_SUITE_P(Memory, ProtectionsTest, testing::Values(Engine::MemoryHarnessFactory()),
                         testing::PrintToStringParamName());

TEST_P(ProtectionsTest, OneWithImpossibleTimesCostsItsTrackAloneAndIsToldAtTheStart) {
    Store({-1, 1});
    const std::string fault = Named("of 1 nanoseconds at -1, begins below 0");
    EXPECT_EQ(logged, (std::vector<std::string>{"Track 7 can't be loaded: " + fault}));
    EXPECT_EQ(ErrorOf([&] { Get(7, 10); }), "Track 7: it can't be used: " + fault);
    EXPECT_EQ(ErrorOf([&] { Fill(7, {40}); }), "Track 7: it can't be used: " + fault);
    Fill(8, {2});
    EXPECT_EQ(TimesOf(8), (std::vector<std::int64_t>{1, 2}));
}

TEST_P(ProtectionsTest, EachImpossibleTimeIsNamed) {
    const std::vector<std::pair<Protections::Stretch, std::string>> faults{
        {{-5, 0}, "of 0 nanoseconds at -5, begins below 0"},
        {{5, -2}, "of -2 nanoseconds at 5, has a duration below 0"},
        {{10, endOfTime - 9},
         "of 9223372036854775798 nanoseconds at 10, ends behind the largest time point, "
         "9223372036854775807"}};
    for (const auto& [stretch, fault] : faults) {
        Store(stretch);
        EXPECT_EQ(ErrorOf([&] { TimesOf(7); }), "Track 7: it can't be used: " + Named(fault));
    }
}

TEST_P(ProtectionsTest, OneThatEndsWithTheLargestTimePointIsPossible) {
    Store({10, endOfTime - 10});
    EXPECT_EQ(logged, std::vector<std::string>());
    EXPECT_EQ(ListProtections(), (std::vector<std::uint64_t>{static_cast<std::uint64_t>(id)}));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30}));
}

TEST_P(ProtectionsTest, TheOtherProtectionsAreStillListed) {
    const auto other = static_cast<std::uint64_t>(Protect(7, 20, 5));
    const auto another = static_cast<std::uint64_t>(Protect(8, 1, 5));
    Store({10, endOfTime});
    EXPECT_EQ(ListProtections(), (std::vector<std::uint64_t>{other, another}));
}

TEST_P(ProtectionsTest, WhileTheTrackCanNotBeUsedTheOthersCanNotBeEnded) {
    const long other = Protect(7, 20, 5);
    Store({-1, 1});
    EXPECT_EQ(ErrorOf([&] { Unprotect(other); }),
              "Track 7: it can't be used: " + Named("of 1 nanoseconds at -1, begins below 0"));
    EXPECT_EQ(ListProtections(), (std::vector<std::uint64_t>{static_cast<std::uint64_t>(other)}));
}

TEST_P(ProtectionsTest, WhatTheTrackHoldsIsNotTouched) {
    Store({-1, 1});
    Store({10, 10});
    EXPECT_EQ(logged, std::vector<std::string>());
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30}));
    EXPECT_EQ(Get(7, 20)->data().items(0).value(), Bytes(100, 20));
    EXPECT_EQ(ListProtections(), (std::vector<std::uint64_t>{static_cast<std::uint64_t>(id)}));
}

TEST_P(ProtectionsTest, OneThatCanNotBeReadKeepsTheStoreClosedAndIsNamed) {
    Close();
    Write("\x02");
    EXPECT_EQ(ErrorOf([&] { Open(); }),
              "The store's record protection/" + std::to_string(id) +
                  " can't be read: a protection of version 2, known is 1");
    Write("\x01");
    EXPECT_EQ(ErrorOf([&] { Open(); }),
              "The store's record protection/" + std::to_string(id) +
                  " can't be read: a stored value ends 8 bytes too early");
}

TEST_P(ProtectionsTest, TheCheckNamesIt) {
    Store({-1, 1});
    Close();
    Engine::ReadOnlyEngine shown(GetEngine());
    EXPECT_EQ(StoreCheck(shown, findings).Run().tracks, 2U);
    EXPECT_EQ(texts, (std::vector<std::string>{"Track 7: it can't be used: " +
                                               Named("of 1 nanoseconds at -1, begins below 0")}));
}

TEST_P(ProtectionsTest, ARecoveryLeavesItOutAndCopiesTheChunks) {
    const auto other = static_cast<std::uint64_t>(Protect(7, 20, 5));
    Store({-1, 1});
    EXPECT_EQ(Recover().chunks, 4U);
    EXPECT_EQ(
        texts,
        (std::vector<std::string>{"Track 7: " + Named("of 1 nanoseconds at -1, begins below 0") +
                                  "; it is left out"}));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30}));
    EXPECT_EQ(ListProtections(), (std::vector<std::uint64_t>{other}));
}

TEST_P(ProtectionsTest, ARecoveryLeavesOutOneThatCanNotBeRead) {
    Close();
    Write("\x02");
    EXPECT_EQ(Recover().chunks, 4U);
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "The store's record protection/" + std::to_string(id) +
                         " can't be read: a protection of version 2, known is 1; it is left out"}));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30}));
    EXPECT_EQ(ListProtections(), std::vector<std::uint64_t>());
}

}  // namespace Brantel::Tracks
