#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Brantel::Tracks {

TEST_P(StorageTest, ASecondWriterOfATrackIsRefused) {
    Create(7);
    Create(8);
    const Writer writer = OpenWriter(7);
    EXPECT_EQ(ErrorOf([&] { OpenWriter(7); }), "Track 7 already has a writer");
    EXPECT_EQ(ErrorOf([&] { OpenWriter(8); }), "no error");
}

TEST_P(StorageTest, AClosedWriterFreesItsTrack) {
    Create(7);
    Writer writer = OpenWriter(7);
    writer.reset();
    EXPECT_EQ(ErrorOf([&] { OpenWriter(7); }), "no error");
}

TEST_P(StorageTest, AWriterKnowsItsTrack) {
    Create(7);
    long track = 0;
    OpenWriter(7)->GetTrackId(track);
    EXPECT_EQ(track, 7);
}

TEST_P(StorageTest, AChunkThatMayBeTakenIsKeptAsItWas) {
    Create(7, 8 << 20);
    const Protocol::Chunk sent = MakeChunk(
        5, 10, {{"audio", Bytes(100)}, {"left", Bytes(20'000)}, {"right", Bytes(600'000)}});
    Protocol::Chunk chunk = sent;
    AppendTaking(7, chunk);
    EXPECT_EQ(Get(7, 5)->SerializeAsString(), sent.SerializeAsString());
}

TEST_P(StorageTest, AChunkThatIsRefusedIsNotTakenApart) {
    Create(7);
    Append(7, 9, 10);
    const Protocol::Chunk sent = MakeChunk(5, 10, {{"data", Bytes(20'000)}});
    Protocol::Chunk chunk = sent;
    EXPECT_EQ(ErrorOf([&] { AppendTaking(7, chunk); }),
              "Track 7: time point 5 is not after the last one, 9");
    EXPECT_EQ(chunk.SerializeAsString(), sent.SerializeAsString());
}

TEST_P(StorageTest, ATimePointMustLieAfterTheLastOne) {
    Create(7);
    Append(7, 9, 10);
    EXPECT_EQ(ErrorOf([&] { Append(7, 5, 1); }),
              "Track 7: time point 5 is not after the last one, 9");
    EXPECT_EQ(ErrorOf([&] { Append(7, 9, 1); }),
              "Track 7: time point 9 is not after the last one, 9");
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{9}));
}

TEST_P(StorageTest, NegativeTimesAreRefused) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] { Append(7, -1, 1); }), "Track 7: time point -1 is below 0");
    EXPECT_EQ(ErrorOf([&] { Append(7, 1, -2); }), "Track 7: duration -2 is below 0");
    EXPECT_TRUE(TimesOf(7).empty());
}

TEST_P(StorageTest, AChunkMayNotEndBehindTheLargestTimePoint) {
    Create(7);
    const std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(ErrorOf([&] { Append(7, highest - 5, 6); }),
              "Track 7: duration 6 at time point 9223372036854775802 is over the longest there, 5");
    Append(7, highest - 5, 5);
    EXPECT_EQ(EndOf(7), highest);
}

TEST_P(StorageTest, AnEmptyKeyIsRefused) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] {
                  Append(7, MakeChunk(1, 1, {{"a", ""}, {"", "x"}}));
              }),
              "Track 7: data block 1 of the chunk has an empty key");
    EXPECT_EQ(ErrorOf([&] {
                  Append(7, MakeChunk(1, 1, {}, {{"", "x"}}));
              }),
              "Track 7: property 0 of the chunk has an empty key");
}

TEST_P(StorageTest, AKeyThatOccursTwiceInItsListIsRefused) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] {
                  Append(7, MakeChunk(1, 1, {{"a", ""}, {"b", ""}, {"a", ""}}));
              }),
              "Track 7: data block key a occurs twice in the chunk");
    EXPECT_EQ(ErrorOf([&] {
                  Append(7, MakeChunk(1, 1, {}, {{"w", "1"}, {"w", "2"}}));
              }),
              "Track 7: property key w occurs twice in the chunk");
    Append(7, MakeChunk(1, 1, {{"same", ""}}, {{"same", ""}}));
}

TEST_P(StorageTest, AKeyThatOccursTwiceAmongManyIsRefused) {
    Create(7);
    Blocks blocks;
    for (int block = 0; block < 1000; ++block) {
        blocks.emplace_back("key" + std::to_string(block), "x");
    }
    Append(7, MakeChunk(1, 1, blocks));
    blocks.emplace_back("key500", "y");
    EXPECT_EQ(ErrorOf([&] { Append(7, MakeChunk(2, 1, blocks)); }),
              "Track 7: data block key key500 occurs twice in the chunk");
}

TEST_P(StorageTest, AChunkThatCanNeverFitIsRefused) {
    Create(7, 4096);
    EXPECT_EQ(ErrorOf([&] {
                  Append(7, 1, 1, {{"data", Bytes(4096)}});
              }),
              "Track 7: a chunk of " + std::to_string(CostOf(4096)) +
                  " bytes is over the largest that the track takes, 4096 bytes");
    EXPECT_EQ(InfoOf(7).size(), 0U);
}

TEST_P(StorageTest, AChunkAsLargeAsTheTrackFits) {
    Create(7, 4096);
    const std::size_t largest = 4096 - CostOf(0) - CostOf(0) % 8;
    ASSERT_EQ(CostOf(largest), 4096U);
    Append(7, 1, 1, {{"data", Bytes(largest)}});
    Append(7, 2, 1, {{"data", Bytes(largest)}});
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{2}));
    EXPECT_EQ(InfoOf(7).size(), 4096U);
}

TEST_P(StorageTest, AfterAClearThatLeftNothingAnyTimePointMayComeNext) {
    Create(7);
    Fill(7, {100, 200});
    storage->ClearTrack(7);
    EXPECT_EQ(BeginningOf(7), -1);
    EXPECT_EQ(EndOf(7), -1);
    Append(7, 0, 1);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{0}));
}

TEST_P(StorageTest, ATrackIsClearedWhileItsWriterIsOpen) {
    Create(7);
    const Writer writer = OpenWriter(7);
    writer->Append(MakeChunk(100, 1));
    storage->ClearTrack(7);
    writer->Append(MakeChunk(5, 1));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{5}));
}

TEST_P(StorageTest, WhatWasAppendedSurvivesARestart) {
    Create(7);
    Fill(7, {1, 2, 3}, 5000);
    Restart();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3}));
    EXPECT_EQ(Get(7, 2)->data().items(0).value(), Bytes(5000, 2));
    Fill(7, {4}, 10);
    Restart();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3, 4}));
}

TEST_P(StorageTest, WhatWasAppendedSurvivesACrash) {
    Create(7);
    Fill(7, {1, 2, 3}, 5000);
    Crash();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{1, 2, 3}));
    EXPECT_EQ(Get(7, 3)->data().items(0).value(), Bytes(5000, 3));
    EXPECT_EQ(ErrorOf([&] { Append(7, 3, 1); }),
              "Track 7: time point 3 is not after the last one, 3");
}

TEST_P(StorageTest, AClearedTrackIsStillEmptyAfterACrash) {
    Create(7);
    Fill(7, {100, 200});
    storage->ClearTrack(7);
    Crash();
    EXPECT_TRUE(TimesOf(7).empty());
    Append(7, 5, 1);
    Crash();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{5}));
}

}  // namespace Brantel::Tracks
