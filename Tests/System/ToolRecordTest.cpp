// What the tool records: every form of input, the time points, and what it says of bad input.

#include "PipeInput.h"
#include "Support/Waiting.h"
#include "ToolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using testing::HasSubstr;
using testing::MatchesRegex;

class ToolRecordTest : public ToolFixture {
  protected:
    int Record(const std::vector<std::string>& arguments) {
        std::vector<std::string> all{"record", Number()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return Tool(all);
    }
};

TEST_F(ToolRecordTest, PicturesFromAPipeComeAtTheirRate) {
    WriteFile("movie", MakeMovie(3));
    ASSERT_EQ(Shell("cat movie | $TOOL record $TRACK --format mjpeg --fps 30000/1001 --start 1s"),
              0)
        << errors;
    EXPECT_EQ(said, "");
    EXPECT_EQ(Times(), (std::vector<long>{1'000'000'000, 1'033'366'666, 1'066'733'333}));
    const DataChunk chunk = Chunk(1'033'366'666);
    EXPECT_EQ(chunk.GetData("image"), MakePicture(1));
    EXPECT_EQ(chunk.GetDuration().ToNanoseconds(), 33'366'667);
    EXPECT_THAT(errors, HasSubstr(": 3 chunks, "));
    EXPECT_THAT(errors, HasSubstr("from 1.000000000 to 1.100100000"));
}

TEST_F(ToolRecordTest, SeveralFilesAreOneRecording) {
    const std::string first = WriteFile("first", MakeMovie(2));
    const std::string second = WriteFile("second", MakeMovie(1));
    ASSERT_EQ(Record({"--format", "mjpeg", "--start", "0", first, second}), 0) << errors;
    EXPECT_EQ(Times(), (std::vector<long>{0, 40'000'000, 80'000'000}));
}

TEST_F(ToolRecordTest, ASecondRecordingBeginsWhereTheTrackEnds) {
    const std::string movie = WriteFile("movie", MakeMovie(2));
    ASSERT_EQ(Record({"--format", "mjpeg", "--fps", "0.001", movie}), 0) << errors;
    ASSERT_EQ(Record({"--format", "mjpeg", movie}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr("where it ends so far"));
    const std::vector<long> times = Times();
    ASSERT_EQ(times.size(), 4U);
    EXPECT_EQ(times[2] - times[0], 2'000'000'000'000);
}

TEST_F(ToolRecordTest, RawBytesAreCutBySizeAndTimedByBytes) {
    const std::string file = WriteFile("sound", "aaaabbbbcc");
    ASSERT_EQ(Record({"--format", "raw", "--chunk-size", "4", "--rate", "4B/s", "--start", "0",
                      "--key", "pcm", "-p", "kind=sound", "-p", "channel=1", file}),
              0)
        << errors;
    EXPECT_EQ(Times(), (std::vector<long>{0, 1'000'000'000, 2'000'000'000}));
    const DataChunk last = Chunk(2'000'000'000);
    EXPECT_EQ(last.GetData("pcm"), "cc");
    EXPECT_EQ(last.GetDuration().ToNanoseconds(), 500'000'000);
    EXPECT_EQ(last.GetProperty("kind"), "sound");
    EXPECT_EQ(last.GetProperty("channel"), "1");
}

TEST_F(ToolRecordTest, LinesAreTimedByAField) {
    const std::string columns = WriteFile("columns", "a 12.5 x\nb 13.000000001 y\n");
    ASSERT_EQ(Record({"--format", "lines", "--time-field", "2", "--duration", "1ms", columns}), 0)
        << errors;
    const std::string members = WriteFile("members", R"({"at":{"time":1},"time":14.25})"
                                                     "\n"
                                                     R"({"time":"2024-05-01T00:00:00Z"})");
    ASSERT_EQ(Record({"--format", "lines", "--time-field", "time", members}), 0) << errors;
    EXPECT_EQ(Times(), (std::vector<long>{12'500'000'000, 13'000'000'001, 14'250'000'000,
                                          1'714'521'600'000'000'000}));
    EXPECT_EQ(Chunk(12'500'000'000).GetData("data"), "a 12.5 x\n");
    EXPECT_EQ(Chunk(12'500'000'000).GetDuration().ToNanoseconds(), 1'000'000);
}

TEST_F(ToolRecordTest, LinesWithoutATimeComeWhenTheyCome) {
    const std::string file = WriteFile("lines", "one\ntwo\nthree\n");
    ASSERT_EQ(Record({"--format", "lines", file}), 0) << errors;
    const std::vector<long> times = Times();
    ASSERT_EQ(times.size(), 3U);
    EXPECT_GT(times.front(), 1'700'000'000'000'000'000);
}

TEST_F(ToolRecordTest, ChunkRecordsKeepEverything) {
    DataChunk chunk;
    chunk.SetTimePoint(Time::TimePoint::Nanoseconds(5));
    chunk.SetDuration(Time::TimePoint::Nanoseconds(2));
    chunk.SetProperty("a", "b");
    chunk.SetData("one", "1");
    chunk.SetData("two", "2");
    std::string record(chunk.GetSizeOnFile(), '\0');
    chunk.Write(reinterpret_cast<unsigned char*>(record.data()));
    const std::string file = WriteFile("records", record);
    ASSERT_EQ(Record({"--format", "record", file}), 0) << errors;
    EXPECT_TRUE(Chunk(5).IsEqual(chunk));
    ASSERT_EQ(Record({"--format", "record", file}), 1);
    EXPECT_THAT(errors, HasSubstr("time point 5 is not after the last one, 5"));
}

TEST_F(ToolRecordTest, JsonSaysWhatWasStored) {
    const std::string movie = WriteFile("movie", MakeMovie(2));
    ASSERT_EQ(Record({"--format", "mjpeg", "--start", "1s", "-j", "-q", movie}), 0);
    EXPECT_EQ(said, "{\"track\":" + Number() +
                        ",\"chunks\":2,\"bytes\":" + std::to_string(MakeMovie(2).size()) +
                        ",\"from\":\"1.000000000\",\"to\":\"1.080000000\",\"reconnects\":0}\n");
    EXPECT_EQ(errors, "");
}

TEST_F(ToolRecordTest, DamagedInputIsNamedWithItsPlaceAndWhatCameBeforeIsStored) {
    const std::string whole = MakeMovie(2);
    const std::string file = WriteFile("movie", whole + "rubbish");
    EXPECT_EQ(Record({"--format", "mjpeg", "--start", "0", file}), 1);
    EXPECT_THAT(errors, HasSubstr(": 2 chunks, "));
    EXPECT_THAT(errors, HasSubstr("brantel: " + file + ": Byte " + std::to_string(whole.size()) +
                                  " is 72 where a JPEG picture, FF D8, should begin\n"));
    EXPECT_EQ(Times().size(), 2U);
}

TEST_F(ToolRecordTest, BadLinesAndRecordsAreNamed) {
    const std::string lines = WriteFile("lines", "1s a\nx b\n");
    EXPECT_EQ(Record({"--format", "lines", "--time-field", "1", lines}), 1);
    EXPECT_THAT(errors, HasSubstr(lines + ": line 2: "));
    const std::string backwards = WriteFile("backwards", "9.5\n9.0\n");
    EXPECT_EQ(Record({"--format", "lines", "--time-field", "1", backwards}), 1);
    EXPECT_THAT(errors, HasSubstr("number 2 is at 9.000000000, not after the one before"));
    const std::string none = WriteFile("none", "x\n");
    EXPECT_EQ(Record({"--format", "lines", "--time-field", "3", none}), 1);
    EXPECT_THAT(errors, HasSubstr("line 1 has no field 3"));
    const std::string records = WriteFile("records", "this is no record, is it?");
    EXPECT_EQ(Record({"--format", "record", records}), 1);
    EXPECT_THAT(errors, HasSubstr("The chunk record at byte 0 says it has "));
}

TEST_F(ToolRecordTest, WrongUsageChangesNothing) {
    const std::string movie = WriteFile("movie", MakeMovie(1));
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{},
          {"--format", "avi"},
          {"--format", "mjpeg", "--fps", "0"},
          {"--format", "mjpeg", "--fps", "1000000000"},
          {"--format", "mjpeg", "--rate", "5"},
          {"--format", "mjpeg", "--chunk-size", "5"},
          {"--format", "mjpeg", "--time-field", "1"},
          {"--format", "mjpeg", "--start", "yesterday"},
          {"--format", "mjpeg", "-p", "novalue"},
          {"--format", "mjpeg", "-p", "a=1", "-p", "a=2"},
          {"--format", "mjpeg", "--retry-for", "0s"},
          {"--format", "raw", "--chunk-size", "0"},
          {"--format", "raw", "--chunk-size", "1GiB"},
          {"--format", "raw", "--start", "now"},
          {"--format", "lines", "--rate", "5", "--time-field", "1"},
          {"--format", "lines", "--rate", "5", "--duration", "1s"},
          {"--format", "record", "--key", "image"},
          {"--format", "record", "--start", "now"}}) {
        std::vector<std::string> arguments = wrong;
        arguments.push_back(movie);
        EXPECT_EQ(Record(arguments), 2) << testing::PrintToString(wrong) << errors;
        EXPECT_EQ(said, "");
        EXPECT_THAT(errors, HasSubstr("Try: brantel record --help"));
    }
    EXPECT_TRUE(Times().empty());
}

TEST_F(ToolRecordTest, WhatCannotBeDoneChangesNothing) {
    const std::string movie = WriteFile("movie", MakeMovie(1));
    EXPECT_EQ(Tool({"record", "99", "--format", "mjpeg", movie}), 1);
    EXPECT_EQ(errors, "brantel: Track 99 does not exist\n");
    EXPECT_EQ(Record({"--format", "mjpeg", "--start", "0", folder.File("missing")}), 1);
    EXPECT_THAT(errors, HasSubstr(folder.File("missing") + ": No such file or directory"));
    client->GetTrackWriter(track);
    EXPECT_EQ(Record({"--format", "mjpeg", movie}), 1);
    EXPECT_THAT(errors, HasSubstr("already has a writer"));
    EXPECT_TRUE(Times().empty());
}

// The pipe stays open: only the signal ends the recording.
TEST_F(ToolRecordTest, AnInterruptEndsItWithAllThatHadComeStored) {
    const std::string path = folder.File("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), S_IRWXU), 0);
    ProgramRun run(
        {ToolRun::Program(), "record", Number(), "--format", "mjpeg", "--start", "0", path},
        Where());
    const PipeInput pipe(path);
    pipe.Write(MakeMovie(3) + "\xFF\xD8\xFF\xE0 half a picture");
    ASSERT_TRUE(Eventually([&] { return Times().size() == 3; }));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 0) << run.Errors();
    EXPECT_THAT(run.Errors(), HasSubstr(": 3 chunks, "));
    EXPECT_THAT(run.Errors(), HasSubstr("Interrupted"));
}

}  // namespace
}  // namespace Brantel::Tests
