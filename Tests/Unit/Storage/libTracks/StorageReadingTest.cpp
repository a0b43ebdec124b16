#include "Support/EngineList.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Brantel::Tracks {

namespace {

constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

std::int64_t TimeOf(const std::optional<Protocol::Chunk>& chunk) {
    return chunk ? static_cast<std::int64_t>(chunk->timecode().nanoseconds()) : -1;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Every, StorageTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageTest, AChunkComesBackAsItWasAppended) {
    Create(7);
    const Protocol::Chunk chunk =
        MakeChunk(5, 40, {{"image", Bytes(70000)}, {"thumbnail", ""}, {"sound", Bytes(33, 9)}},
                  {{"width", "720"}, {"empty", ""}, {"raw", std::string("\0\xff", 2)}});
    Append(7, chunk);
    EXPECT_EQ(Get(7, 5)->SerializeAsString(), chunk.SerializeAsString());
}

TEST_P(StorageTest, AChunkWithoutPropertiesAndDataComesBack) {
    Create(7);
    Append(7, 0, 0);
    EXPECT_EQ(Get(7, 0)->SerializeAsString(), MakeChunk(0, 0).SerializeAsString());
}

TEST_P(StorageTest, AChunkCoversFromItsTimePointToBeforeItsEnd) {
    Create(7);
    Append(7, 100, 40);
    EXPECT_EQ(TimeOf(Get(7, 99)), -1);
    EXPECT_EQ(TimeOf(Get(7, 100)), 100);
    EXPECT_EQ(TimeOf(Get(7, 139)), 100);
    EXPECT_EQ(TimeOf(Get(7, 140)), -1);
}

TEST_P(StorageTest, AChunkOfDurationZeroCoversExactlyItsTimePoint) {
    Create(7);
    Append(7, 100, 0);
    EXPECT_EQ(TimeOf(Get(7, 99)), -1);
    EXPECT_EQ(TimeOf(Get(7, 100)), 100);
    EXPECT_EQ(TimeOf(Get(7, 101)), -1);
}

TEST_P(StorageTest, WhereTwoChunksOverlapTheLaterIsPreferred) {
    Create(7);
    Append(7, 0, 41);
    Append(7, 40, 10);
    EXPECT_EQ(TimeOf(Get(7, 39)), 0);
    EXPECT_EQ(TimeOf(Get(7, 40)), 40);
}

TEST_P(StorageTest, AnEarlierChunkThatReachesPastALaterOneIsNotFoundBehindIt) {
    Create(7);
    Append(7, 0, 100);
    Append(7, 40, 10);
    EXPECT_EQ(TimeOf(Get(7, 60)), -1);
}

TEST_P(StorageTest, ALookupAtTheEdgesOfTimeFindsWhatIsThere) {
    Create(7);
    Append(7, 0, 1);
    Append(7, highest, 0);
    EXPECT_EQ(TimeOf(Get(7, highest)), highest);
    EXPECT_EQ(TimeOf(Get(7, std::numeric_limits<std::int64_t>::min())), -1);
    EXPECT_EQ(TimeOf(Next(7, std::numeric_limits<std::int64_t>::min())), 0);
    EXPECT_EQ(TimeOf(Next(7, highest)), -1);
    EXPECT_EQ(TimeOf(Previous(7, highest)), 0);
    EXPECT_EQ(TimeOf(Previous(7, std::numeric_limits<std::int64_t>::min())), -1);
}

TEST_P(StorageTest, NextIsTheFirstChunkAfterATimePoint) {
    Create(7);
    Fill(7, {10, 20, 30});
    EXPECT_EQ(TimeOf(Next(7, -1)), 10);
    EXPECT_EQ(TimeOf(Next(7, 10)), 20);
    EXPECT_EQ(TimeOf(Next(7, 29)), 30);
    EXPECT_EQ(TimeOf(Next(7, 30)), -1);
}

TEST_P(StorageTest, PreviousIsTheLastChunkBeforeATimePoint) {
    Create(7);
    Fill(7, {10, 20, 30});
    EXPECT_EQ(TimeOf(Previous(7, 10)), -1);
    EXPECT_EQ(TimeOf(Previous(7, 11)), 10);
    EXPECT_EQ(TimeOf(Previous(7, 30)), 20);
    EXPECT_EQ(TimeOf(Previous(7, 1000)), 30);
}

TEST_P(StorageTest, TimePointsAreFoundWithoutTheirChunks) {
    Create(7);
    Fill(7, {10, 20});
    const Reader reader = OpenReader(7);
    Protocol::TimePoint time;
    bool found = false;
    reader->NextTimePoint(At(10), time, found);
    EXPECT_TRUE(found);
    EXPECT_EQ(time.nanoseconds(), 20U);
    reader->PreviousTimePoint(At(20), time, found);
    EXPECT_TRUE(found);
    EXPECT_EQ(time.nanoseconds(), 10U);
}

TEST_P(StorageTest, WhatIsNotFoundIsAnEmptyChunkAndAnUnsetTimePoint) {
    Create(7);
    const Reader reader = OpenReader(7);
    Protocol::Chunk chunk = MakeChunk(1, 2, {{"old", "data"}});
    Protocol::TimePoint time;
    bool found = true;
    reader->GetChunk(At(5), {}, chunk, found);
    EXPECT_FALSE(found);
    EXPECT_EQ(chunk.ByteSizeLong(), 0U);
    for (const bool isNext : {true, false}) {
        found = true;
        chunk = MakeChunk(1, 2, {{"old", "data"}});
        isNext ? reader->GetNextChunk(At(5), {}, chunk, found)
               : reader->GetPreviousChunk(At(5), {}, chunk, found);
        EXPECT_FALSE(found);
        EXPECT_EQ(chunk.ByteSizeLong(), 0U);
        found = true;
        isNext ? reader->NextTimePoint(At(5), time, found)
               : reader->PreviousTimePoint(At(5), time, found);
        EXPECT_FALSE(found);
        EXPECT_FALSE(time.has_nanoseconds());
    }
}

TEST_P(StorageTest, WithKeysAllPropertiesAndOnlyTheNamedDataBlocksCome) {
    Create(7);
    Append(7, MakeChunk(5, 1, {{"a", "1"}, {"b", "2"}, {"c", "3"}}, {{"p", "v"}}));
    EXPECT_EQ(Get(7, 5, {"c", "a", "unknown"})->SerializeAsString(),
              MakeChunk(5, 1, {{"a", "1"}, {"c", "3"}}, {{"p", "v"}}).SerializeAsString());
    EXPECT_EQ(Get(7, 5, {"unknown"})->SerializeAsString(),
              MakeChunk(5, 1, {}, {{"p", "v"}}).SerializeAsString());
}

TEST_P(StorageTest, DataThatWasNotAskedForIsNotRead) {
    Create(7);
    Append(7, MakeChunk(5, 1, {{"broken", "1"}, {"whole", "2"}}));
    const Engine::SegmentId segment{7, Engine::LogKind::Ring, 1};
    harness->DamageChunk(segment, GetEngine().ReadEntries(segment)[0], 1);
    EXPECT_EQ(Get(7, 5, {"whole"})->data().items(0).value(), "2");
}

TEST_P(StorageTest, BeginningAndEndOfATrackAreThoseOfItsFirstAndLastChunk) {
    Create(7);
    Append(7, 100, 40);
    Append(7, 140, 5);
    EXPECT_EQ(BeginningOf(7), 100);
    EXPECT_EQ(EndOf(7), 145);
    EXPECT_EQ(InfoOf(7).tpin().nanoseconds(), 100U);
    EXPECT_EQ(InfoOf(7).tpout().nanoseconds(), 145U);
}

TEST_P(StorageTest, BeginningAndEndOfAnEmptyTrackAreMinusOne) {
    Create(7);
    EXPECT_EQ(BeginningOf(7), -1);
    EXPECT_EQ(EndOf(7), -1);
    EXPECT_EQ(static_cast<std::int64_t>(InfoOf(7).tpin().nanoseconds()), -1);
    EXPECT_EQ(static_cast<std::int64_t>(InfoOf(7).tpout().nanoseconds()), -1);
}

TEST_P(StorageTest, ChunksAreCountedByTheirTimePointInAHalfOpenInterval) {
    Create(7);
    Fill(7, {10, 20, 30, 40});
    EXPECT_EQ(CountOf(7, 10, 40), 3);
    EXPECT_EQ(CountOf(7, 11, 41), 3);
    EXPECT_EQ(CountOf(7, -5, highest), 4);
    EXPECT_EQ(CountOf(7, 12, 18), 0);
}

TEST_P(StorageTest, DurationsAreSummedOverTheSameChunks) {
    Create(7);
    Append(7, 10, 1);
    Append(7, 20, 2);
    Append(7, 30, 4);
    EXPECT_EQ(DurationOf(7, 10, 30), 3);
    EXPECT_EQ(DurationOf(7, 11, 31), 6);
    EXPECT_EQ(DurationOf(7, 0, highest), 7);
}

TEST_P(StorageTest, AnIntervalThatEndsBeforeItBeginsHoldsNoChunk) {
    Create(7);
    Fill(7, {10, 20});
    EXPECT_EQ(CountOf(7, 20, 10), 0);
    EXPECT_EQ(CountOf(7, 10, 10), 0);
    EXPECT_EQ(DurationOf(7, 20, 10), 0);
}

TEST_P(StorageTest, AReadSeesEveryAppendThatWasAnsweredBefore) {
    Create(7);
    const Reader reader = OpenReader(7);
    const Writer writer = OpenWriter(7);
    for (std::int64_t time = 0; time < 100; ++time) {
        writer->Append(MakeChunk(time, 1));
        Protocol::Chunk chunk;
        bool found = false;
        reader->GetChunk(At(time), {}, chunk, found);
        ASSERT_TRUE(found);
    }
}

TEST_P(StorageTest, AReaderKnowsItsTrack) {
    Create(7);
    long track = 0;
    OpenReader(7)->GetTrackId(track);
    EXPECT_EQ(track, 7);
}

TEST_P(StorageTest, AnyOperationOnAnUnknownTrackSaysSo) {
    const std::string text = "Track 9 does not exist";
    Protocol::TrackParameters out;
    Protocol::PropertyList properties;
    long number = 0;
    EXPECT_EQ(ErrorOf([&] { OpenReader(9); }), text);
    EXPECT_EQ(ErrorOf([&] { OpenWriter(9); }), text);
    EXPECT_EQ(ErrorOf([&] { storage->GetTrackSize(9, number); }), text);
    EXPECT_EQ(ErrorOf([&] { BeginningOf(9); }), text);
    EXPECT_EQ(ErrorOf([&] { EndOf(9); }), text);
    EXPECT_EQ(ErrorOf([&] { CountOf(9, 0, 1); }), text);
    EXPECT_EQ(ErrorOf([&] { DurationOf(9, 0, 1); }), text);
    EXPECT_EQ(ErrorOf([&] { storage->ClearTrack(9); }), text);
    EXPECT_EQ(ErrorOf([&] { storage->DeleteTrack(9, out); }), text);
    EXPECT_EQ(ErrorOf([&] { Grow(9, 1 << 20); }), text);
    EXPECT_EQ(ErrorOf([&] { Protect(9, 0, 1); }), text);
    EXPECT_EQ(ErrorOf([&] { storage->GetTrackProperties(9, properties); }), text);
    EXPECT_EQ(ErrorOf([&] { storage->SetTrackProperties(9, properties); }), text);
    EXPECT_EQ(ErrorOf([&] { storage->RemoveTrackProperties(9, properties); }), text);
}

}  // namespace Brantel::Tracks
