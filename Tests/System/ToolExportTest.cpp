// A track in a file and back: whole, interrupted, gone on with, damaged, recovered.

#include "Support/Waiting.h"
#include "ToolFixture.h"

#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using Time::TimePoint;

class ToolExportTest : public ToolFixture {
  protected:
    // Chunks of one block, a second each.
    void Append(long first, long count) {
        ProtocolX::IStorageWriterX* const writer = client->GetTrackWriter(track);
        for (long number = first; number < first + count; ++number) {
            DataChunk chunk;
            chunk.SetTimePoint(TimePoint::Nanoseconds(number * second));
            chunk.SetDuration(TimePoint::Nanoseconds(second));
            chunk.SetProperty("number", std::to_string(number));
            chunk.SetData("block", "chunk " + std::to_string(number) + ";" + std::string(500, 'x'));
            writer->Append(chunk);
        }
        client->CloseTrackWriter(track);
    }
    int Export(const std::vector<std::string>& arguments) {
        std::vector<std::string> all{"export", Number()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return Tool(all);
    }
    std::vector<long> SecondsOf(long id) const {
        std::vector<long> times = TimesOf(*client, id);
        for (long& time : times) {
            time /= second;
        }
        return times;
    }
    DataChunk ChunkOf(long id, long number) const {
        DataChunk chunk;
        client->GetTrackReader(id, 1)->GetChunk(chunk, TimePoint::Nanoseconds(number * second), {});
        return chunk;
    }
    void Damage(const std::string& mark) const {
        std::string bytes = ReadFile(file);
        const std::size_t place = bytes.find(mark);
        ASSERT_NE(place, std::string::npos);
        bytes[place] = 'C';
        WriteFile("track.brantel", bytes);
    }

    static constexpr long second = 1'000'000'000;
    const std::string file = folder.File("track.brantel");
};

TEST_F(ToolExportTest, AnImportedTrackIsTheExportedOne) {
    client->SetTrackProperties(track, {{"camera", "north"}});
    Append(0, 20);
    ASSERT_EQ(Export({file}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr(": 20 chunks written to " + file + ", which has 20 now"));
    EXPECT_THAT(errors, HasSubstr(", verified\n"));
    EXPECT_EQ(said, "");
    ASSERT_EQ(Tool({"import", "--new", "-j", file}), 0) << errors;
    EXPECT_THAT(said, HasSubstr("{\"track\":2,"));
    ASSERT_EQ(SecondsOf(2), SecondsOf(track));
    for (long number = 0; number < 20; ++number) {
        EXPECT_TRUE(ChunkOf(2, number).IsEqual(ChunkOf(track, number)));
    }
    EXPECT_EQ(client->GetTrackProperties(2).at("camera"), "north");
    EXPECT_EQ(client->GetTrackSize(2), client->GetTrackSize(track));
}

TEST_F(ToolExportTest, ARangeIsExportedAlone) {
    Append(0, 20);
    ASSERT_EQ(Export({"5s..8s", file}), 0) << errors;
    ASSERT_EQ(Tool({"import", "--new", file}), 0) << errors;
    EXPECT_EQ(SecondsOf(2), (std::vector<long>{5, 6, 7}));
}

TEST_F(ToolExportTest, SinceLastAddsWhatIsNew) {
    Append(0, 3);
    ASSERT_EQ(Export({file}), 0) << errors;
    Append(3, 2);
    ASSERT_EQ(Export({"--since-last", "-j", file}), 0) << errors;
    EXPECT_THAT(said, HasSubstr("\"added\":2,\"chunks\":5,"));
    ASSERT_EQ(Export({"--since-last", file}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr(": 0 chunks written"));
    ASSERT_EQ(Tool({"check", file}), 0) << said << errors;
    EXPECT_THAT(said, HasSubstr(file + ": 5 chunks, "));
}

TEST_F(ToolExportTest, WhatMayHaveBeenRecycledBetweenTwoExportsIsTold) {
    Append(0, 3);
    ASSERT_EQ(Export({file}), 0) << errors;
    client->ClearTrack(track);
    Append(10, 2);
    EXPECT_EQ(Export({"--since-last", file}), 3);
    EXPECT_THAT(errors, HasSubstr("begins at 10.000000000 now: chunks before may have been"));
}

TEST_F(ToolExportTest, AnExportThatWasCutOffGoesOn) {
    Append(0, 20);
    ASSERT_EQ(Export({file}), 0) << errors;
    const std::string whole = ReadFile(file);
    for (const std::size_t part : {3U, 2U}) {
        WriteFile("track.brantel", whole.substr(0, whole.size() * (part - 1) / part));
        ASSERT_EQ(Export({file}), 0) << errors;
        EXPECT_THAT(errors, HasSubstr(": goes on after "));
        EXPECT_EQ(ReadFile(file), whole);
    }
}

TEST_F(ToolExportTest, AFinishedFileIsReplacedOnlyWhenAsked) {
    Append(0, 2);
    ASSERT_EQ(Export({file}), 0) << errors;
    const std::string before = ReadFile(file);
    EXPECT_EQ(Export({file}), 1);
    EXPECT_THAT(errors, HasSubstr(file + ": is a finished export: --since-last adds what is new"));
    EXPECT_EQ(ReadFile(file), before);
    Append(2, 1);
    EXPECT_EQ(Export({"-f", file}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr(": 3 chunks written"));
    EXPECT_FALSE(std::filesystem::exists(file + ".new"));
}

TEST_F(ToolExportTest, OtherFilesAreLeftAsTheyAre) {
    Append(0, 2);
    WriteFile("track.brantel", "something precious that is long enough to hold a header");
    EXPECT_EQ(Export({file}), 1);
    EXPECT_THAT(errors, HasSubstr(file + ": is no export file"));
    EXPECT_THAT(ReadFile(file), testing::StartsWith("something precious"));
    EXPECT_EQ(Export({folder.Path()}), 1);
    EXPECT_EQ(Export({folder.File("missing/file")}), 1);
    EXPECT_THAT(errors, HasSubstr("No such file or directory"));
}

// The server is killed while the chunks are on their way: what came is whole and gone on with.
TEST_F(ToolExportTest, ALostServerIsToldWithWhatIsInTheFile) {
    Append(0, 5000);
    ProgramRun run({ToolRun::Program(), "export", Number(), file}, Where());
    ASSERT_TRUE(Eventually([&] { return client->GetWorkerIds().size() == 1; }));
    server->Process().Signal(SIGKILL);
    server->Process().Wait();
    client.reset();
    EXPECT_EQ(run.Wait(), 1) << run.Errors();
    EXPECT_THAT(run.Errors(), HasSubstr(" chunks; the same command goes on with " + file + "\n"));
    EXPECT_THAT(run.Errors(), HasSubstr("The connection to unix:" + socketPath + " was lost"));
    Start();
    ASSERT_EQ(Export({file}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr(", which has 5000 now"));
    EXPECT_EQ(Tool({"check", file}), 0) << said;
}

TEST_F(ToolExportTest, AChunkThatCanBeNoRecordIsLeftOutAndTold) {
    Append(0, 1);
    DataChunk chunk;
    chunk.SetTimePoint(TimePoint::Nanoseconds(second));
    chunk.GetData("nothing");
    client->GetTrackWriter(track)->Append(chunk);
    EXPECT_EQ(Export({file}), 3);
    EXPECT_THAT(errors, HasSubstr("Left out: the chunk at 1.000000000: "));
    EXPECT_EQ(Tool({"check", file}), 0);
}

TEST_F(ToolExportTest, AnImportThatWasCutOffGoesOn) {
    Append(0, 10);
    ASSERT_EQ(Export({file}), 0) << errors;
    ASSERT_EQ(Tool({"import", "--new", file}), 0) << errors;
    Append(10, 5);
    ASSERT_EQ(Export({"--since-last", file}), 0) << errors;
    ASSERT_EQ(Tool({"import", "--track", "2", file}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr("has the chunks up to 9.000000000 already"));
    EXPECT_THAT(errors, HasSubstr("Track 2: 5 chunks, "));
    EXPECT_EQ(SecondsOf(2), SecondsOf(track));
}

TEST_F(ToolExportTest, AnImportIntoOtherChunksIsRefused) {
    Append(0, 10);
    ASSERT_EQ(Export({file}), 0) << errors;
    const long other = CreateTrack(*client);
    AppendChunk(*client, other, 5, "other");
    client->CloseTrackWriter(other);
    EXPECT_EQ(Tool({"import", "--track", std::to_string(other), file}), 1);
    EXPECT_THAT(errors, HasSubstr("nothing was imported; --track or --new"));
    EXPECT_EQ(client->GetEndOfTrack(other).ToNanoseconds(), 6);
}

TEST_F(ToolExportTest, ATrackThatIsTooSmallLosesAndSaysSo) {
    Append(0, 40);
    ASSERT_EQ(Export({file}), 0) << errors;
    EXPECT_EQ(Tool({"import", "--new", "--size", "8000", file}), 3);
    EXPECT_THAT(errors, HasSubstr("Track 2 is too small: "));
}

TEST_F(ToolExportTest, ADryRunChangesNothing) {
    Append(0, 4);
    ASSERT_EQ(Export({file}), 0) << errors;
    EXPECT_EQ(Tool({"import", "--new", "--dry-run", file}), 0) << errors;
    EXPECT_EQ(said, "Would import 4 chunks into a new track\n");
    EXPECT_EQ(Tool({"import", "--track", Number(), "--dry-run", "-j", file}), 0) << errors;
    EXPECT_EQ(said,
              "{\"track\":1,\"chunks\":0,\"dryRun\":true,\"would\":\"import 0 chunks into "
              "track 1\"}\n");
    EXPECT_EQ(client->ListTracks().size(), 1U);
}

TEST_F(ToolExportTest, ADamagedFileIsNeitherImportedNorContinuedButRecovered) {
    Append(0, 10);
    ASSERT_EQ(Export({file}), 0) << errors;
    Damage("chunk 4;");
    EXPECT_EQ(Tool({"import", "--new", file}), 1);
    EXPECT_THAT(errors, HasSubstr(file + ": at byte "));
    EXPECT_THAT(errors, HasSubstr("the checksum of this record is wrong"));
    EXPECT_EQ(client->ListTracks().size(), 1U);
    EXPECT_EQ(Export({"--since-last", file}), 1);
    EXPECT_EQ(Tool({"check", file}), 3);
    EXPECT_THAT(said, HasSubstr("the checksum of this record is wrong\n"));
    EXPECT_THAT(said, EndsWith(": 1 findings\n"));
    const std::string whole = folder.File("whole.brantel");
    EXPECT_EQ(Tool({"recover", file, whole}), 3) << errors;
    EXPECT_THAT(said, HasSubstr(": 9 chunks saved to " + whole + ": 1 findings\n"));
    EXPECT_EQ(Tool({"recover", "-j", file, folder.File("again.brantel")}), 3) << errors;
    EXPECT_THAT(said, MatchesRegex("\\{\"where\":\"[^\n]+\",\"problem\":\"[^\n]+\"\\}\n"
                                   "\\{\"recovered\":\"[^\n]+\",\"chunks\":9,\"findings\":1\\}\n"));
    EXPECT_EQ(Tool({"check", whole}), 0) << said;
    ASSERT_EQ(Tool({"import", "--new", whole}), 0) << errors;
    EXPECT_EQ(SecondsOf(2), (std::vector<long>{0, 1, 2, 3, 5, 6, 7, 8, 9}));
}

TEST_F(ToolExportTest, AFileWhoseHeaderIsLostIsRecoveredToo) {
    Append(0, 3);
    ASSERT_EQ(Export({file}), 0) << errors;
    std::string bytes = ReadFile(file);
    bytes[20] = 'x';
    WriteFile("track.brantel", bytes);
    EXPECT_EQ(Tool({"check", file}), 3) << said << errors;
    const std::string whole = folder.File("whole.brantel");
    EXPECT_EQ(Tool({"recover", file, whole}), 3) << errors;
    EXPECT_THAT(said, HasSubstr("the track's number and properties are lost"));
    ASSERT_EQ(Tool({"import", "--new", "--size", "1MB", whole}), 0) << errors;
    EXPECT_EQ(SecondsOf(2), (std::vector<long>{0, 1, 2}));
}

TEST_F(ToolExportTest, AWholeFileIsRecoveredAsItIs) {
    Append(0, 3);
    ASSERT_EQ(Export({file}), 0) << errors;
    const std::string copy = folder.File("copy.brantel");
    EXPECT_EQ(Tool({"recover", file, copy}), 0) << errors;
    EXPECT_EQ(ReadFile(copy), ReadFile(file));
    EXPECT_EQ(Tool({"recover", file, copy}), 1);
    EXPECT_THAT(errors, HasSubstr(copy + ": File exists"));
}

TEST_F(ToolExportTest, WrongUsageIsRefused) {
    EXPECT_EQ(Export({}), 2);
    EXPECT_EQ(Export({"--since-last", "-f", file}), 2);
    EXPECT_EQ(Export({"tomorrow", file}), 2);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(Tool({"import"}), 2);
    EXPECT_EQ(Tool({"import", "--new", "--track", "3", file}), 2);
    EXPECT_EQ(Tool({"import", file}), 1);
    EXPECT_THAT(errors, HasSubstr(file + ": No such file or directory"));
    EXPECT_EQ(Tool({"recover", file}), 2);
    EXPECT_EQ(Tool({"recover", file, folder.File("x")}), 1);
    EXPECT_EQ(Tool({"export", "99", file}), 1);
    EXPECT_EQ(errors, "brantel: Track 99 does not exist\n");
}

}  // namespace
}  // namespace Brantel::Tests
