// What the tool plays: the bytes as they were recorded, in every form, direction and stretch.

#include "ToolFixture.h"

#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using testing::HasSubstr;
using Time::TimePoint;

class ToolPlayTest : public ToolFixture {
  protected:
    // Ten pictures, one each 40 ms from 1 s on.
    void RecordMovie() {
        const std::string movie = WriteFile("movie", MakeMovie(10));
        ASSERT_EQ(Tool({"record", Number(), "--format", "mjpeg", "--start", "1s", movie}), 0)
            << errors;
    }
    int Play(const std::vector<std::string>& arguments) {
        std::vector<std::string> all{"play", Number()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return Tool(all);
    }
    void Append(long time, const std::vector<std::pair<std::string, std::string>>& blocks) {
        DataChunk chunk;
        chunk.SetTimePoint(TimePoint::Nanoseconds(time));
        chunk.SetProperty("number", std::to_string(time));
        for (const auto& [key, bytes] : blocks) {
            chunk.GetData(key) = bytes;
        }
        client->GetTrackWriter(track)->Append(chunk);
    }
    std::set<std::string> FilesOf(const std::string& name) const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.File(name))) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }
};

TEST_F(ToolPlayTest, TheBytesAreThoseThatWereRecorded) {
    RecordMovie();
    ASSERT_EQ(Play({}), 0) << errors;
    EXPECT_EQ(said, MakeMovie(10));
    EXPECT_THAT(errors, HasSubstr(": 10 chunks, "));
    ASSERT_EQ(Play({"--format", "mjpeg", "-q"}), 0);
    EXPECT_EQ(said, MakeMovie(10));
    EXPECT_EQ(errors, "");
}

TEST_F(ToolPlayTest, ARangeIsHalfOpenAndToldOnTheStandardError) {
    RecordMovie();
    ASSERT_EQ(Play({"1.04..1.12"}), 0) << errors;
    EXPECT_EQ(said, MakePicture(1) + MakePicture(2));
    EXPECT_THAT(errors, HasSubstr("1.040000000 .. 1.120000000"));
    ASSERT_EQ(Play({"end-80ms.."}), 0);
    EXPECT_EQ(said, MakePicture(8) + MakePicture(9));
    ASSERT_EQ(Play({"5s..6s"}), 0);
    EXPECT_EQ(said, "");
}

TEST_F(ToolPlayTest, BackwardTheLastChunkComesFirst) {
    RecordMovie();
    ASSERT_EQ(Play({"--reverse", "1.04..1.12"}), 0) << errors;
    EXPECT_EQ(said, MakePicture(2) + MakePicture(1));
}

TEST_F(ToolPlayTest, TheLastChunkIsPlayedEvenWithoutADuration) {
    Append(1, {{"data", "one"}});
    Append(2, {{"data", "two"}});
    ASSERT_EQ(Play({}), 0) << errors;
    EXPECT_EQ(said, "onetwo");
    ASSERT_EQ(Play({"start.."}), 0);
    EXPECT_EQ(said, "onetwo");
}

TEST_F(ToolPlayTest, AnEmptyTrackHasNothingToPlay) {
    EXPECT_EQ(Play({}), 0) << errors;
    EXPECT_EQ(said, "");
}

TEST_F(ToolPlayTest, KeysChooseTheBlocks) {
    Append(1, {{"image", "I"}, {"sound", "S"}, {"text", "T"}});
    ASSERT_EQ(Play({"--keys", "text,image"}), 0) << errors;
    EXPECT_EQ(said, "IT");
    ASSERT_EQ(Play({"--keys", "nothing"}), 0) << errors;
    EXPECT_EQ(said, "");
}

TEST_F(ToolPlayTest, ChunkRecordsAreRecordedAgainAsTheyWere) {
    Append(1, {{"image", "I"}, {"sound", "S"}});
    Append(2, {{"image", "J"}});
    ASSERT_EQ(Play({"--format", "record"}), 0) << errors;
    const std::string records = WriteFile("records", said);
    const DataChunk first = Chunk(1);
    client->CloseTrackWriter(track);
    client->ClearTrack(track);
    ASSERT_EQ(Tool({"record", Number(), "--format", "record", records}), 0) << errors;
    EXPECT_TRUE(Chunk(1).IsEqual(first));
    EXPECT_EQ(Chunk(2).GetData("image"), "J");
}

TEST_F(ToolPlayTest, JsonIsOneObjectForEachChunk) {
    Append(1, {{"text", "hello"}});
    Append(2, {{"bytes", "\xFF\xFE"}});
    ASSERT_EQ(Play({"--format", "json"}), 0) << errors;
    EXPECT_EQ(said,
              "{\"timePoint\":\"0.000000001\",\"durationNanoseconds\":0,\"properties\":{\"number\":"
              "\"1\"},\"data\":{\"text\":\"hello\"}}\n"
              "{\"timePoint\":\"0.000000002\",\"durationNanoseconds\":0,\"properties\":{\"number\":"
              "\"2\"},\"data\":{\"bytesBase64\":\"//4=\"}}\n");
    const std::string before = said;
    ASSERT_EQ(Play({"-j"}), 0);
    EXPECT_EQ(said, before);
}

TEST_F(ToolPlayTest, AFolderGetsOneFileForEachBlock) {
    Append(1, {{"image", MakePicture(1)}, {"a/b", "x"}});
    Append(2, {{"image", MakePicture(2)}});
    ASSERT_EQ(Play({"-o", folder.File("out")}), 0) << errors;
    EXPECT_EQ(said, "");
    EXPECT_EQ(FilesOf("out"), (std::set<std::string>{"000001-0000000000000000001-a_b.bin",
                                                     "000001-0000000000000000001-image.jpg",
                                                     "000002-0000000000000000002.jpg"}));
    EXPECT_EQ(ReadFile(folder.File("out/000002-0000000000000000002.jpg")), MakePicture(2));
}

TEST_F(ToolPlayTest, FilesAreOverwrittenOnlyWhenAsked) {
    Append(1, {{"image", "new"}});
    std::filesystem::create_directory(folder.File("out"));
    const std::string file = WriteFile("out/000001-0000000000000000001.bin", "precious");
    EXPECT_EQ(Play({"-o", folder.File("out")}), 1);
    EXPECT_THAT(errors, HasSubstr(file + ": File exists"));
    EXPECT_EQ(ReadFile(file), "precious");
    EXPECT_EQ(Play({"-o", folder.File("out"), "-f"}), 0) << errors;
    EXPECT_EQ(ReadFile(file), "new");
}

TEST_F(ToolPlayTest, WhatHasNoSuchFormIsLeftOutAndTold) {
    Append(1, {{"text", "hello"}});
    Append(2, {{"image", MakePicture(2)}, {"empty", ""}});
    EXPECT_EQ(Play({"--format", "mjpeg"}), 3);
    EXPECT_EQ(said, MakePicture(2));
    EXPECT_THAT(errors, HasSubstr("the chunk at 0.000000001: none of its data blocks is a JPEG"));
    EXPECT_EQ(Play({"--format", "record"}), 3);
    EXPECT_THAT(errors, HasSubstr("the value is empty"));
    EXPECT_THAT(errors, HasSubstr(": 1 chunks, "));
}

TEST_F(ToolPlayTest, InRealTimeItTakesAsLongAsTheRecording) {
    RecordMovie();
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Play({"--realtime"}), 0) << errors;
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(360));
    EXPECT_EQ(said, MakeMovie(10));
}

TEST_F(ToolPlayTest, WrongUsageAndWrongTracksAreRefused) {
    EXPECT_EQ(Play({"tomorrow"}), 2);
    EXPECT_EQ(Play({"--format", "avi"}), 2);
    EXPECT_EQ(Play({"-f"}), 2);
    EXPECT_EQ(Play({"--preview", "-o", "x"}), 2);
    EXPECT_EQ(Tool({"play", "seven"}), 2);
    EXPECT_EQ(Tool({"play"}), 2);
    EXPECT_EQ(Tool({"play", "99"}), 1);
    EXPECT_EQ(errors, "brantel: Track 99 does not exist\n");
    EXPECT_EQ(Play({"start.."}), 1);
    EXPECT_THAT(errors, HasSubstr("The track is empty"));
}

TEST_F(ToolPlayTest, AReaderThatGoesAwayEndsItQuietly) {
    RecordMovie();
    ASSERT_EQ(Shell("$TOOL play $TRACK -q | head -c 5 | wc -c"), 0) << errors;
    EXPECT_THAT(said, HasSubstr("5"));
    EXPECT_EQ(errors, "");
}

TEST_F(ToolPlayTest, PicturesAreShownAsCharacters) {
    ASSERT_EQ(Shell("ffmpeg -v error -f lavfi -i testsrc=size=64x48:rate=5:duration=0.4 -f mjpeg - "
                    "| $TOOL record $TRACK --format mjpeg --fps 5 --start 0"),
              0)
        << errors;
    ASSERT_EQ(Play({"--preview"}), 0) << errors;
    EXPECT_THAT(said, HasSubstr("@@@@"));
    EXPECT_THAT(said, HasSubstr("\n0.200000000\n"));
    Append(1'000'000'000, {{"image", MakePicture(1)}});
    EXPECT_EQ(Play({"--preview"}), 3);
    EXPECT_THAT(errors, HasSubstr("its picture can't be decoded: "));
}

}  // namespace
}  // namespace Brantel::Tests
