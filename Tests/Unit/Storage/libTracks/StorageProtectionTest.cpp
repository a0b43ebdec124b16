#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Tracks {

namespace {

using Times = std::vector<std::int64_t>;

constexpr std::size_t quarter = 840;  // of data: four such chunks fill 4096 bytes

std::vector<Protocol::ProtectionInfo> List(BrantelStorageApi::ITrackStorage& storage) {
    Protocol::ProtectionInfos infos;
    storage.ListProtections(infos);
    return {infos.infos().begin(), infos.infos().end()};
}

}  // namespace

TEST_P(StorageTest, RecyclingStepsOverHeldChunks) {
    Create(7, 4096);
    ASSERT_EQ(4 * CostOf(quarter), 4096U);
    Fill(7, {10, 20, 30, 40}, quarter);
    Protect(7, 20, 5);
    Fill(7, {50}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 30, 40, 50}));
    Fill(7, {60}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 40, 50, 60}));
    Fill(7, {70, 80, 90}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 70, 80, 90}));
    EXPECT_EQ(Get(7, 25)->data().items(0).value(), Bytes(quarter, 20));
    EXPECT_EQ(BeginningOf(7), 20);
    EXPECT_EQ(Next(7, 20)->timecode().nanoseconds(), 70U);
    EXPECT_EQ(Previous(7, 70)->timecode().nanoseconds(), 20U);
}

TEST_P(StorageTest, EveryChunkThatIntersectsTheStretchIsHeld) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    Protect(7, 19, 2);
    Fill(7, {50, 60, 70}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{10, 20, 60, 70}));
}

TEST_P(StorageTest, AStretchHoldsNeitherTheChunkThatEndsWhereItBeginsNorTheOneAtItsEnd) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    Protect(7, 20, 10);
    Fill(7, {50, 60, 70}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 50, 60, 70}));
}

TEST_P(StorageTest, ADurationOfZeroHoldsTheChunkThatCoversTheTimePoint) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    Protect(7, 29, 0);
    Fill(7, {50, 60, 70}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 50, 60, 70}));
}

TEST_P(StorageTest, AChunkOfDurationZeroIsHeldWhereItLies) {
    Create(7);
    Append(7, 10, 0);
    Append(7, 20, 0);
    Protect(7, 10, 10);
    storage->ClearTrack(7);
    EXPECT_EQ(TimesOf(7), (Times{10}));
}

TEST_P(StorageTest, ChunksThatAreAppendedLaterAreHeldToo) {
    Create(7, 4096);
    Protect(7, 20, 10);
    Fill(7, {10, 20, 30, 40, 50, 60}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 40, 50, 60}));
}

TEST_P(StorageTest, AnEmptyTrackCanBeProtected) {
    Create(7);
    EXPECT_GT(Protect(7, 0, 0), 0);
}

TEST_P(StorageTest, AProtectionMustNotBeginOrLastBelowZero) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] { Protect(7, -1, 5); }),
              "Track 7: a protection of 5 nanoseconds at -1 begins below 0");
    EXPECT_EQ(ErrorOf([&] { Protect(7, 1, -5); }),
              "Track 7: a protection of -5 nanoseconds at 1 has a duration below 0");
    EXPECT_EQ(ErrorOf([&] { Protect(7, 10, INT64_MAX); }),
              "Track 7: a protection of 9223372036854775807 nanoseconds at 10 ends behind the "
              "largest time point, 9223372036854775807");
    EXPECT_TRUE(List(*storage).empty());
}

TEST_P(StorageTest, AStretchThatEndsAtOrBeforeTheBeginningIsRefused) {
    Create(7);
    Fill(7, {40});
    EXPECT_EQ(ErrorOf([&] { Protect(7, 30, 10); }),
              "Track 7: a protection of 10 nanoseconds at 30 ends at or before the beginning of "
              "the track, 40");
    EXPECT_EQ(ErrorOf([&] { Protect(7, 39, 0); }),
              "Track 7: a protection of 0 nanoseconds at 39 ends at or before the beginning of "
              "the track, 40");
    EXPECT_EQ(ErrorOf([&] { Protect(7, 30, 11); }), "no error");
    EXPECT_EQ(ErrorOf([&] { Protect(7, 40, 0); }), "no error");
}

TEST_P(StorageTest, ProtectionsAreListedWithTheirBounds) {
    Create(7);
    Create(8);
    const long first = Protect(7, 10, 5);
    const long second = Protect(8, 20, 0);
    const auto list = List(*storage);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].handle(), static_cast<std::uint64_t>(first));
    EXPECT_EQ(list[0].trackid(), 7U);
    EXPECT_EQ(list[0].tcin().nanoseconds(), 10U);
    EXPECT_EQ(list[0].tcout().nanoseconds(), 15U);
    EXPECT_EQ(list[1].handle(), static_cast<std::uint64_t>(second));
    EXPECT_EQ(list[1].tcout().nanoseconds(), 20U);
}

TEST_P(StorageTest, OverlappingProtectionsEachHoldUntilTheyEnd) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    const long first = Protect(7, 10, 15);
    const long second = Protect(7, 20, 5);
    Fill(7, {50, 60}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{10, 20, 50, 60}));
    Unprotect(first);
    EXPECT_EQ(TimesOf(7), (Times{20, 50, 60}));
    Unprotect(second);
    EXPECT_EQ(TimesOf(7), (Times{50, 60}));
}

TEST_P(StorageTest, AnIdentifierOfAProtectionIsNeverUsedAgain) {
    Create(7);
    const long first = Protect(7, 10, 5);
    Unprotect(first);
    const long second = Protect(7, 10, 5);
    EXPECT_GT(second, first);
    Unprotect(second);
    Restart();
    const long third = Protect(7, 10, 5);
    EXPECT_EQ(third, second + 1);
    Unprotect(third);
    Crash();
    EXPECT_GT(Protect(7, 10, 5), third);
}

TEST_P(StorageTest, EndingAnUnknownProtectionIsAnError) {
    Create(7);
    const long id = Protect(7, 10, 5);
    Unprotect(id);
    EXPECT_EQ(ErrorOf([&] { Unprotect(id); }),
              "Protection " + std::to_string(id) + " does not exist");
}

TEST_P(StorageTest, WhenOnlyHeldChunksAreLeftTheAppendFailsAndChangesNothing) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    const long id = Protect(7, 0, 1000);
    EXPECT_EQ(ErrorOf([&] { Fill(7, {50}, quarter); }),
              "Track 7: a chunk of " + std::to_string(CostOf(quarter)) + " bytes does not fit, " +
                  std::to_string(4 * CostOf(quarter)) + " of 4096 bytes are held by protections");
    EXPECT_EQ(TimesOf(7), (Times{10, 20, 30, 40}));
    Unprotect(id);
    Fill(7, {50}, quarter);
    EXPECT_EQ(TimesOf(7), (Times{20, 30, 40, 50}));
}

TEST_P(StorageTest, ClearingDropsEveryChunkThatIsNotHeld) {
    Create(7);
    Fill(7, {10, 20, 30, 40});
    Protect(7, 20, 15);
    storage->ClearTrack(7);
    EXPECT_EQ(TimesOf(7), (Times{20, 30}));
    EXPECT_EQ(InfoOf(7).size(), 2 * CostOf(0));
    EXPECT_EQ(ErrorOf([&] { Append(7, 30, 1); }),
              "Track 7: time point 30 is not after the last one, 30");
    Append(7, 31, 1);
    EXPECT_EQ(TimesOf(7), (Times{20, 30, 31}));
}

TEST_P(StorageTest, ATrackWithProtectionsIsNotDeleted) {
    Create(7);
    const long id = Protect(7, 0, 5);
    Protocol::TrackParameters out;
    EXPECT_EQ(ErrorOf([&] { storage->DeleteTrack(7, out); }),
              "Track 7: it has 1 protections and can't be deleted");
    Unprotect(id);
    Delete(7);
}

TEST_P(StorageTest, ProtectionsAndWhatTheyHoldSurviveRestartAndCrash) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    const long id = Protect(7, 20, 5);
    Fill(7, {50, 60}, quarter);
    Restart();
    EXPECT_EQ(TimesOf(7), (Times{20, 40, 50, 60}));
    Fill(7, {70, 80}, quarter);
    Crash();
    EXPECT_EQ(TimesOf(7), (Times{20, 60, 70, 80}));
    EXPECT_EQ(List(*storage).size(), 1U);
    Unprotect(id);
    Crash();
    EXPECT_EQ(TimesOf(7), (Times{60, 70, 80}));
    EXPECT_TRUE(List(*storage).empty());
}

TEST_P(StorageTest, WhatWasGivenUpDoesNotComeBackUnderAnotherProtection) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    const long id = Protect(7, 10, 15);
    Fill(7, {50}, quarter);
    Unprotect(id);
    EXPECT_EQ(TimesOf(7), (Times{40, 50}));
    Protect(7, 0, 1000);
    Crash();
    EXPECT_EQ(TimesOf(7), (Times{40, 50}));
}

TEST_P(StorageTest, TooManyProtectionsAreRefused) {
    Close();
    StorageOptions options;
    options.protectionsLimit = 2;
    tracks = std::make_unique<Storage>(GetEngine(), options);
    storage = tracks->MakeTrackStorage();
    Create(7);
    Protect(7, 0, 1);
    Protect(7, 0, 1);
    EXPECT_EQ(ErrorOf([&] { Protect(7, 0, 1); }), "Track 7: it has 2 protections, the limit is 2");
}

}  // namespace Brantel::Tracks
