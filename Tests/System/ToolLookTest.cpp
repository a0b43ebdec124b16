// The verbs that look at what is there: get, tail, gaps, graph, du, check and bench.

#include "Support/Waiting.h"
#include "ToolFixture.h"

#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using Time::TimePoint;

class ToolLookTest : public ToolFixture {
  protected:
    static constexpr long second = 1'000'000'000;

    void Append(long seconds, const std::string& bytes, long duration = second) {
        DataChunk chunk;
        chunk.SetTimePoint(TimePoint::Nanoseconds(seconds * second));
        chunk.SetDuration(TimePoint::Nanoseconds(duration));
        chunk.SetData("block", bytes);
        client->GetTrackWriter(track)->Append(chunk);
    }
    // Seconds 10 to 12 and 15, and so a gap of two seconds.
    void AppendWithGap() {
        for (const long seconds : {10L, 11L, 12L, 15L}) {
            Append(seconds, "chunk " + std::to_string(seconds) + ";");
        }
    }
    // Flips a bit of a chunk in the store of a server that is not running.
    void Damage(const std::string& mark) const {
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(folder.File("store/tracks"))) {
            if (!entry.is_regular_file()) {
                continue;
            }
            const std::size_t place = ReadFile(entry.path().string()).find(mark);
            if (place != std::string::npos) {
                std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
                file.seekp(static_cast<std::streamoff>(place));
                file << 'C';
                return;
            }
        }
        FAIL() << mark;
    }
};

TEST_F(ToolLookTest, GetFindsAChunkByItsTime) {
    AppendWithGap();
    EXPECT_EQ(Tool({"get", Number(), "11.5"}), 0) << errors;
    EXPECT_EQ(said, "chunk 11;");
    EXPECT_THAT(errors, HasSubstr("the chunk at 11.000000000"));
    EXPECT_EQ(Tool({"get", Number(), "13s", "--next"}), 0);
    EXPECT_EQ(said, "chunk 15;");
    EXPECT_EQ(Tool({"get", Number(), "13s", "--previous", "-o", folder.File("out")}), 0) << errors;
    EXPECT_EQ(said, "");
    EXPECT_EQ(ReadFile(folder.File("out")), "chunk 12;");
    EXPECT_EQ(Tool({"get", Number(), "end-1s", "-j"}), 0);
    EXPECT_THAT(said, StartsWith("{\"timePoint\":\"15.000000000\""));
}

TEST_F(ToolLookTest, GetSaysWhatIsNotThere) {
    AppendWithGap();
    EXPECT_EQ(Tool({"get", Number(), "13.5"}), 1);
    EXPECT_THAT(errors, HasSubstr("Track 1 has no chunk at 13.500000000"));
    EXPECT_EQ(Tool({"get", Number(), "20s", "--next"}), 1);
    EXPECT_THAT(errors, HasSubstr("has no chunk after "));
    EXPECT_EQ(Tool({"get", Number(), "11s", "--format", "mjpeg"}), 1);
    EXPECT_THAT(errors, HasSubstr("none of its data blocks is a JPEG picture"));
    WriteFile("out", "precious");
    EXPECT_EQ(Tool({"get", Number(), "11s", "-o", folder.File("out")}), 1);
    EXPECT_EQ(ReadFile(folder.File("out")), "precious");
    EXPECT_EQ(Tool({"get", Number(), "11s", "--next", "--previous"}), 2);
    EXPECT_EQ(Tool({"get", Number(), "noon"}), 2);
    EXPECT_EQ(Tool({"get", Number()}), 2);
}

TEST_F(ToolLookTest, TailPrintsTheLastChunks) {
    AppendWithGap();
    EXPECT_EQ(Tool({"tail", Number(), "-n", "2"}), 0) << errors;
    EXPECT_EQ(said, "chunk 12;chunk 15;");
    EXPECT_EQ(Tool({"tail", Number()}), 0);
    EXPECT_EQ(said, "chunk 10;chunk 11;chunk 12;chunk 15;");
    EXPECT_EQ(Tool({"tail", Number(), "-n", "0"}), 0);
    EXPECT_EQ(said, "");
    EXPECT_EQ(Tool({"tail", Number(), "--stats"}), 2);
    EXPECT_EQ(Tool({"tail", "99"}), 1);
}

TEST_F(ToolLookTest, TailFollowsAndMeasuresTheDelay) {
    Append(1, "old;");
    ProgramRun run({ToolRun::Program(), "tail", "-f", "--stats", Number()}, Where());
    ASSERT_TRUE(Eventually([&] { return run.Output() == "old;"; })) << run.Errors();
    client->CloseTrackWriter(track);
    WriteFile("lines", "one\ntwo\n");
    ASSERT_EQ(Tool({"record", Number(), "--format", "lines", folder.File("lines")}), 0) << errors;
    ASSERT_TRUE(Eventually([&] { return run.Output() == "old;one\ntwo\n"; })) << run.Errors();
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 0) << run.Errors();
    EXPECT_THAT(run.Errors(), HasSubstr("From time point to print, of 2 chunks: median "));
}

TEST_F(ToolLookTest, TailEndsWhenTheServerDoes) {
    Append(1, "old;");
    ProgramRun run({ToolRun::Program(), "tail", "-f", Number()}, Where());
    ASSERT_TRUE(Eventually([&] { return run.Output() == "old;"; })) << run.Errors();
    server->Process().Signal(SIGKILL);
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr("The connection to unix:" + socketPath + " was lost"));
}

TEST_F(ToolLookTest, GapsAreListedExactly) {
    AppendWithGap();
    EXPECT_EQ(Tool({"gaps", Number(), "-j"}), 0) << errors;
    EXPECT_EQ(said,
              "{\"from\":\"13.000000000\",\"to\":\"15.000000000\",\"nanoseconds\":"
              "2000000000}\n");
    EXPECT_THAT(errors, HasSubstr("1 gaps among 4 chunks, "));
    EXPECT_EQ(Tool({"gaps", Number()}), 0);
    EXPECT_THAT(said, HasSubstr("13.000000000"));
    EXPECT_EQ(Tool({"gaps", Number(), "--min", "3s"}), 0);
    EXPECT_EQ(said, "");
}

TEST_F(ToolLookTest, AGapOfOneNanosecondIsFoundBesideOverlaps) {
    Append(1, "reaches into the next one", second + 1);
    Append(2, "is short", second - 1);
    Append(3, "last");
    EXPECT_EQ(Tool({"gaps", Number(), "-j"}), 0) << errors;
    EXPECT_EQ(said, "{\"from\":\"2.999999999\",\"to\":\"3.000000000\",\"nanoseconds\":1}\n");
}

TEST_F(ToolLookTest, AtTheEdgesOfARangeThereAreGapsToo) {
    AppendWithGap();
    EXPECT_EQ(Tool({"gaps", Number(), "-j", "9s..10.5"}), 0) << errors;
    EXPECT_EQ(said,
              "{\"from\":\"9.000000000\",\"to\":\"10.000000000\",\"nanoseconds\":"
              "1000000000}\n");
    EXPECT_EQ(Tool({"gaps", Number(), "-j", "12.5..14s"}), 0) << errors;
    EXPECT_EQ(said,
              "{\"from\":\"13.000000000\",\"to\":\"14.000000000\",\"nanoseconds\":"
              "1000000000}\n");
}

TEST_F(ToolLookTest, NeitherGapsNorAGraphReadTheData) {
    AppendWithGap();
    Stop();
    Damage("chunk 11;");
    Start();
    EXPECT_EQ(Tool({"gaps", Number()}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr("1 gaps among 4 chunks, "));
    EXPECT_EQ(Tool({"graph", Number(), "--width", "6"}), 0) << errors;
    EXPECT_EQ(Tool({"play", Number(), "-q"}), 3);
}

TEST_F(ToolLookTest, AGraphShowsRateGapsAndProtections) {
    AppendWithGap();
    client->Protect(track, TimePoint::Nanoseconds(12 * second),
                    TimePoint::Nanoseconds(13 * second));
    EXPECT_EQ(Tool({"graph", Number(), "[10s_16s)", "--width", "6"}), 0) << errors;
    EXPECT_THAT(said, HasSubstr("\nrate  ███  █  up to 1 chunks/s\n"));
    EXPECT_THAT(said, HasSubstr("\ncover ███  █  full"));
    EXPECT_THAT(said, HasSubstr("\nheld    ━     protected\n"));
    EXPECT_EQ(Tool({"graph", Number(), "[10s_16s)", "--width", "6", "-j"}), 0);
    EXPECT_THAT(said, HasSubstr("{\"from\":\"12.000000000\",\"to\":\"13.000000000\",\"chunks\":1,"
                                "\"coveredNanoseconds\":1000000000,\"protected\":true}\n"));
    EXPECT_EQ(Tool({"graph", Number(), "--width", "0"}), 2);
}

TEST_F(ToolLookTest, DuShowsWhatIsUsedAndWhatIsLeft) {
    AppendWithGap();
    EXPECT_EQ(Tool({"du"}), 0) << errors;
    EXPECT_THAT(said, MatchesRegex("TRACK +USED +CAPACITY +FULL *\n1 +[^\n]*\nall +[^\n]*\n"
                                   "free +[^\n]*\n"));
    EXPECT_EQ(Tool({"du", "-j", Number()}), 0);
    EXPECT_THAT(said, StartsWith("{\"track\":1,\"used\":"));
    EXPECT_EQ(Tool({"du", "99"}), 1);
    EXPECT_EQ(errors, "brantel: Track 99 does not exist\n");
}

TEST_F(ToolLookTest, ACleanServerAndFolderAreWhole) {
    AppendWithGap();
    EXPECT_EQ(Tool({"check"}), 0) << errors;
    EXPECT_THAT(said, MatchesRegex("unix:.*: 4 chunks, .*: all is whole\n"));
    EXPECT_EQ(Tool({"check", Number()}), 0);
    EXPECT_THAT(said, StartsWith("Track 1: 4 chunks, "));
    EXPECT_EQ(Tool({"check", "99"}), 1);
    EXPECT_EQ(Tool({"check", folder.File("missing")}), 1);
    Stop();
    EXPECT_EQ(Tool({"check", folder.File("store"), "--storaged", ServerProcess::Program()}), 0)
        << errors;
    EXPECT_THAT(said, EndsWith(" 4 chunks: all is whole\n"));
}

TEST_F(ToolLookTest, DamageIsFoundByTheServerAndInTheFolder) {
    AppendWithGap();
    Stop();
    Damage("chunk 11;");
    EXPECT_EQ(Tool({"check", folder.File("store"), "--storaged", ServerProcess::Program()}), 3)
        << errors;
    EXPECT_EQ(Tool({"check", "-j", folder.File("store"), "--storaged", ServerProcess::Program()}),
              3);
    EXPECT_THAT(said, MatchesRegex("\\{\"where\":\"[^\n]*\",\"problem\":\"[^\n]*\"\\}\n"
                                   "\\{\"checked\":\"[^\n]*\",\"findings\":1\\}\n"));
    EXPECT_EQ(Tool({"recover", folder.File("store"), folder.File("new"), "--storaged",
                    ServerProcess::Program()}),
              3)
        << errors;
    EXPECT_TRUE(std::filesystem::exists(folder.File("new/FORMAT")));
    Start();
    EXPECT_EQ(Tool({"check"}), 3) << errors;
    EXPECT_THAT(said, HasSubstr("Track 1: the chunk at 11000000000 is damaged, in "));
    EXPECT_THAT(said, EndsWith(": 1 findings\n"));
    EXPECT_EQ(Tool({"check", "-j"}), 3);
    EXPECT_THAT(said, StartsWith("{\"where\":\"track 1, 11.000000000\",\"problem\":\"Track 1: "));
    EXPECT_EQ(Tool({"play", Number()}), 3);
    EXPECT_EQ(said, "chunk 10;chunk 12;chunk 15;");
    EXPECT_EQ(Tool({"play", Number(), "--reverse"}), 3);
    EXPECT_EQ(said, "chunk 15;chunk 12;chunk 10;");
    EXPECT_EQ(Tool({"export", Number(), folder.File("file")}), 3);
    EXPECT_THAT(errors, HasSubstr("; 1 left out"));
}

TEST_F(ToolLookTest, AMissingServerProgramIsNamed) {
    EXPECT_EQ(Tool({"check", folder.Path(), "--storaged", folder.File("missing")}), 1);
    EXPECT_THAT(errors, HasSubstr(folder.File("missing") + ": No such file or directory"));
}

TEST_F(ToolLookTest, BenchMeasuresAndLeavesNothing) {
    EXPECT_EQ(Tool({"bench", "--duration", "50ms", "--chunk-size", "4KiB", "--track-size", "4MiB",
                    "--writers", "2", "--readers", "2"}),
              0)
        << errors;
    EXPECT_THAT(said, MatchesRegex("OPERATION +THREADS.*\nappend +2 .*\nread +2 .*\n"));
    EXPECT_THAT(errors, HasSubstr("durability: that of the server"));
    EXPECT_EQ(Tool({"bench", "append", "-j", "--duration", "20ms", "--track-size", "4MiB",
                    "--durability", "os"}),
              0)
        << errors;
    EXPECT_THAT(said, StartsWith("{\"operation\":\"append\",\"threads\":1,\"chunkSize\":65536,"
                                 "\"durability\":\"os\",\"seconds\":0.0"));
    ASSERT_TRUE(Eventually([&] { return client->ListTracks().size() == 1; }));
}

TEST_F(ToolLookTest, WrongMeasurementsAreRefused) {
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"both", "--chunk-size", "0"},
          {"both", "--chunk-size", "1GiB"},
          {"both", "--chunk-size", "1MiB", "--track-size", "1MiB"},
          {"both", "--duration", "0s"},
          {"both", "--writers", "0"},
          {"write"}}) {
        std::vector<std::string> arguments{"bench"};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(Tool(arguments), 2) << testing::PrintToString(wrong) << errors;
    }
    EXPECT_EQ(Tool({"bench", "--durability", "sometimes"}), 2);
    ASSERT_TRUE(Eventually([&] { return client->ListTracks().size() == 1; }));
}

}  // namespace
}  // namespace Brantel::Tests
