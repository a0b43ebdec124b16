// Ctrl-C while a verb is at work: it ends, says how far it got, and leaves nothing half done.

#include "Support/Waiting.h"
#include "TerminalRun.h"
#include "ToolFixture.h"

#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using testing::ContainsRegex;
using testing::HasSubstr;
using Time::TimePoint;

// More chunks than any verb gets through before it is interrupted.
class ToolInterruptTest : public ToolFixture {
  protected:
    static constexpr long chunks = 8'000;

    void Fill(std::size_t bytes) {
        DataChunk chunk;
        chunk.SetDuration(TimePoint::Nanoseconds(1));
        chunk.SetData("block", std::string(bytes, 'x'));
        ProtocolX::IStorageWriterX* const writer = client->GetTrackWriter(track);
        for (long time = 0; time < chunks; ++time) {
            chunk.SetTimePoint(TimePoint::Nanoseconds(time));
            writer->Append(chunk);
        }
        client->CloseTrackWriter(track);
    }
    // Ctrl-C as soon as the verb has a connection; then it ends as failed and says this.
    void Interrupt(const std::vector<std::string>& arguments, const std::string& says) {
        std::vector<std::string> command{ToolRun::Program(), "-v"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramRun run(command, Where());
        ASSERT_TRUE(
            Eventually([&] { return run.Errors().find("Connected to") != std::string::npos; }));
        run.Signal(SIGINT);
        EXPECT_EQ(run.Wait(), 1) << testing::PrintToString(arguments) << run.Errors();
        EXPECT_THAT(run.Errors(), ContainsRegex("brantel: " + says + "[^\n]*\n$"));
    }
    std::string Export() {
        const std::string file = folder.File("track.brantel");
        EXPECT_EQ(Tool({"export", Number(), file}), 0) << errors;
        return file;
    }
};

TEST_F(ToolInterruptTest, EveryLongVerbEndsAndSaysHowFarItGot) {
    Fill(1);
    const std::string again = "; the same command goes on ";
    Interrupt({"play", Number(), "--realtime", "--reverse"},
              "Interrupted after [0-9]+ chunks, at ");
    Interrupt({"gaps", Number()}, "Interrupted at [0-9.]+");
    Interrupt({"graph", Number(), "--width", "8000"}, "Interrupted");
    Interrupt({"check"}, "Interrupted in track 1 at ");
    Interrupt({"export", Number(), folder.File("part")},
              "Interrupted after [0-9]+ chunks" + again + "with ");
    ASSERT_EQ(Tool({"export", Number(), folder.File("part")}), 0) << errors;
    EXPECT_THAT(errors, HasSubstr(", which has 8000 now"));
    const std::string other = std::to_string(CreateTrack(*client));
    Interrupt({"import", "--track", other, folder.File("part")},
              "Interrupted after [0-9]+ chunks" + again + "in track 2");
    ASSERT_EQ(Tool({"import", "--track", other, folder.File("part")}), 0) << errors;
    EXPECT_EQ(client->GetNumberOfChunks(2, TimePoint(), TimePoint::GetHighestTimePoint()), chunks);
    Interrupt({"bench", "--duration", "1h", "--track-size", "1MiB"}, "Interrupted");
    EXPECT_TRUE(Eventually([&] { return client->ListTracks().size() == 2; }));
}

TEST_F(ToolInterruptTest, AnExportThatWouldReplaceAFileLeavesItAsItIs) {
    Fill(1);
    const std::string file = Export();
    const std::string before = ReadFile(file);
    Interrupt({"export", "-f", Number(), file},
              "Interrupted after [0-9]+ chunks; [^\n]* is as it was");
    EXPECT_EQ(ReadFile(file), before);
    EXPECT_FALSE(std::filesystem::exists(file + ".new"));
}

TEST_F(ToolInterruptTest, ACheckOfAFileSaysSo) {
    Fill(400);
    const std::string file = Export();
    std::string bytes = ReadFile(file);
    bytes[1000] = '!';
    WriteFile("track.brantel", bytes);
    TerminalRun run({ToolRun::Program(), "check", file}, Where());
    ASSERT_TRUE(run.Await("the checksum of this record is wrong"));
    run.Type("\x03");
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Text(), HasSubstr("brantel: Interrupted in " + file));
}

TEST_F(ToolInterruptTest, ARecoveryLeavesNoHalfFile) {
    Fill(400);
    const std::string file = Export();
    const std::string target = folder.File("whole.brantel");
    ProgramRun run({ToolRun::Program(), "recover", file, target}, Where());
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(target); }));
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Wait(), 1) << run.Output();
    EXPECT_THAT(run.Errors(),
                ContainsRegex("Interrupted after [0-9]+ chunks; nothing is left of "));
    EXPECT_FALSE(std::filesystem::exists(target));
}

// Like a pager that nobody leafs through: the pipe is full, and the call of the system waits.
TEST_F(ToolInterruptTest, APlayThatNobodyReadsEnds) {
    WriteFile("movie", MakeMovie(40, 10'000));
    ASSERT_EQ(Tool({"record", Number(), "--format", "mjpeg", "--start", "0", folder.File("movie")}),
              0);
    const std::string pipe = folder.File("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRWXU), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ProgramRun run({"/bin/sh", "-c", "exec \"$TOOL\" play $TRACK > " + pipe}, ShellWhere());
    // The pipe holds 64 KiB: it is full when more can't be counted.
    int held = 0;
    ASSERT_TRUE(Eventually([&] { return ioctl(reader, FIONREAD, &held) == 0 && held > 60'000; }));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Errors(), ContainsRegex("brantel: Interrupted after [0-9]+ chunks, at [0-9.]+; "
                                            "nobody takes what is written\n"));
    close(reader);
}

TEST_F(ToolInterruptTest, APlayWhoseServerIsLostSaysHowFarItGot) {
    Fill(1);
    ProgramRun run({ToolRun::Program(), "-v", "play", Number(), "--format", "json"}, Where());
    ASSERT_TRUE(Eventually([&] { return client->GetWorkerIds().size() == 1; }));
    server->Process().Signal(SIGKILL);
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Errors(), ContainsRegex("\n[0-9]+ chunks were played, the last one at "));
    EXPECT_THAT(run.Errors(), HasSubstr("The connection to unix:" + socketPath + " was lost"));
    const std::string played = run.Output();
    EXPECT_THAT(run.Errors(),
                HasSubstr("\n" + std::to_string(std::count(played.begin(), played.end(), '\n')) +
                          " chunks were played"));
}

}  // namespace
}  // namespace Brantel::Tests
