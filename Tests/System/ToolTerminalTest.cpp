// The command line where a person sits: questions, bars, colors and the live view.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "TerminalRun.h"
#include "ToolRun.h"

#include <libTime/TimePoint.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class ToolTerminalTest : public testing::Test {
  protected:
    std::vector<std::string> Command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ToolRun::Program(), "--server", "unix:" + socketPath});
        return arguments;
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    ServerProcess server{socketPath};
    const std::unique_ptr<ProtocolX::StorageClientX> client = server.ConnectOverUnix();
};

TEST_F(ToolTerminalTest, DeletingAsksAndDoesItWhenTheUserAgrees) {
    CreateTrack(*client);
    TerminalRun run(Command({"track", "delete", "1"}));
    ASSERT_TRUE(run.Await("This would delete Track 1 (0 chunks, 0 B). Go on? [y/N] "))
        << run.Text();
    EXPECT_THAT(client->ListTracks(), SizeIs(1));
    run.Type("y\n");
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_THAT(run.Text(), HasSubstr("Track 1 deleted"));
    EXPECT_THAT(client->ListTracks(), IsEmpty());
}

TEST_F(ToolTerminalTest, AnyOtherAnswerChangesNothing) {
    CreateTrack(*client);
    for (const char* const answer : {"n\n", "\n", "x\n", "\x04"}) {
        TerminalRun run(Command({"track", "delete", "1"}));
        ASSERT_TRUE(run.Await("[y/N] "));
        run.Type(answer);
        EXPECT_EQ(run.Wait(), 1);
        EXPECT_THAT(run.Text(), HasSubstr("nothing was changed"));
    }
    EXPECT_THAT(client->ListTracks(), SizeIs(1));
}

TEST_F(ToolTerminalTest, ControlCAtTheQuestionChangesNothing) {
    CreateTrack(*client);
    TerminalRun run(Command({"track", "clear", "1"}));
    ASSERT_TRUE(run.Await("[y/N] "));
    run.Type("\x03");
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Text(), HasSubstr("Interrupted; nothing was changed"));
}

TEST_F(ToolTerminalTest, TheListHasColorsAndBlocks) {
    CreateTrack(*client);
    for (long time = 1; time <= 9; ++time) {
        AppendChunk(*client, 1, time, std::string(1'000'000, 'x'));
    }
    TerminalRun run(Command({"ls"}));
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_THAT(run.Text(), HasSubstr("\x1b[1mtrack"));
    EXPECT_THAT(run.Text(), HasSubstr("████"));
}

TEST_F(ToolTerminalTest, NoColorIsRespected) {
    CreateTrack(*client);
    TerminalRun run(Command({"ls"}), {{"NO_COLOR", "1"}});
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_THAT(run.Text(), Not(HasSubstr("\x1b[1m")));
}

TEST_F(ToolTerminalTest, PropertiesCannotMoveTheTerminal) {
    CreateTrack(*client);
    client->SetTrackProperties(1, {{"key", "\x1b[2Jx"}});
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"prop", "get", "1"}, {"prop", "get", "1", "key"}, {"info", "1"}}) {
        TerminalRun run(Command(arguments));
        EXPECT_EQ(run.Wait(), 0);
        EXPECT_THAT(run.Text(), HasSubstr("\\x1b[2Jx"));
    }
}

TEST_F(ToolTerminalTest, AWatchedListStaysInPlace) {
    CreateTrack(*client);
    TerminalRun run(Command({"ls", "-w", "-i", "10ms"}));
    ASSERT_TRUE(run.Await("\x1b[H"));
    ASSERT_TRUE(run.Await("\x1b[H"));
    CreateTrack(*client);
    ASSERT_TRUE(run.Await("    2   0 B"));
    run.Type("\x03");
    EXPECT_EQ(run.Wait(), 0);
}

using ToolTopTest = ToolTerminalTest;

TEST_F(ToolTopTest, TracksWorkersAndTheirThroughputAreShownUntilQ) {
    CreateTrack(*client);
    client->GetTrackWriter(1);
    TerminalRun run(Command({"top", "-i", "50ms"}));
    ASSERT_TRUE(run.Await("1 track, 1 worker, 0 commands"));
    ASSERT_TRUE(run.Await("writer")) << run.Text();
    EXPECT_TRUE(run.IsRaw());
    run.Type("q");
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_FALSE(run.IsRaw());
    EXPECT_THAT(run.Text(), EndsWith("\x1b[?25h\x1b[?1049l"));
}

TEST_F(ToolTopTest, WhatIsNewAppears) {
    TerminalRun run(Command({"top", "-i", "10ms"}));
    ASSERT_TRUE(run.Await("0 tracks"));
    CreateTrack(*client);
    ASSERT_TRUE(run.Await("1 track,"));
    run.Type("x");
    run.Type("q");
    EXPECT_EQ(run.Wait(), 0);
}

TEST_F(ToolTopTest, EverySignalThatEndsItRestoresTheTerminal) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        TerminalRun run(Command({"top"}));
        ASSERT_TRUE(run.Await("q quits"));
        run.Signal(signal);
        EXPECT_EQ(run.Wait(), 0);
        EXPECT_FALSE(run.IsRaw());
        EXPECT_THAT(run.Text(), EndsWith("\x1b[?25h\x1b[?1049l"));
    }
}

TEST_F(ToolTopTest, ALostServerRestoresTheTerminalAndIsReported) {
    TerminalRun run(Command({"top", "-i", "10ms"}));
    ASSERT_TRUE(run.Await("q quits"));
    server.Process().Signal(SIGKILL);
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_FALSE(run.IsRaw());
    EXPECT_TRUE(run.Await("\x1b[?1049l"));
    EXPECT_TRUE(run.Await("brantel: The connection to unix:" + socketPath + " was lost"))
        << run.Text();
}

TEST_F(ToolTopTest, AServerThatHangsRestoresTheTerminalAfterTheTimeout) {
    TerminalRun run(Command({"top", "-i", "10ms", "--timeout", "200ms"}));
    ASSERT_TRUE(run.Await("q quits"));
    server.Process().Signal(SIGSTOP);
    EXPECT_EQ(run.Wait(), 1);
    server.Process().Signal(SIGCONT);
    EXPECT_FALSE(run.IsRaw());
    EXPECT_THAT(run.Text(), HasSubstr("did not answer within 0.2s"));
}

TEST_F(ToolTopTest, AnotherSizeIsDrawnAnew) {
    for (int i = 0; i < 12; ++i) {
        CreateTrack(*client, 1 << 20);
    }
    TerminalRun run(Command({"top", "-i", "1h"}));
    ASSERT_TRUE(run.Await("q quits"));
    run.Resize(100, 6);
    ASSERT_TRUE(run.Await("... 10 more")) << run.Text();
    run.Resize(20, 30);
    ASSERT_TRUE(run.Await("\x1b[Hbrantel top  unix:/t\x1b[0m")) << run.Text();
    run.Type("q");
    EXPECT_EQ(run.Wait(), 0);
}

TEST_F(ToolTopTest, StoppedItGivesTheTerminalBackUntilItGoesOn) {
    TerminalRun run(Command({"top", "-i", "1h"}));
    ASSERT_TRUE(run.Await("q quits"));
    run.Type("\x1a");
    ASSERT_TRUE(run.AwaitStop());
    EXPECT_FALSE(run.IsRaw());
    run.Signal(SIGCONT);
    ASSERT_TRUE(run.Await("\x1b[?1049h"));
    ASSERT_TRUE(run.Await("q quits"));
    EXPECT_TRUE(run.IsRaw());
    run.Type("q");
    EXPECT_EQ(run.Wait(), 0);
}

TEST_F(ToolTopTest, WithoutATerminalItIsMisuse) {
    const ToolRun run({"top", "--server", "unix:" + socketPath});
    EXPECT_EQ(run.ExitCode(), 2);
    EXPECT_THAT(run.Errors(), HasSubstr("top needs a terminal"));
}

}  // namespace
}  // namespace Brantel::Tests
