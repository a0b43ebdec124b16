// Commands that take their time: followed with a bar, cut off, cancelled, and never answered for.

#include "ScriptedServer.h"
#include "Support/TemporaryFolder.h"
#include "TerminalRun.h"
#include "ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class ToolCommandTest : public testing::Test {
  protected:
    std::vector<std::string> Command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ToolRun::Program(), "--server", "unix:" + socketPath});
        return arguments;
    }
    std::vector<std::string> Create() const { return Command({"track", "create", "100MiB"}); }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    ScriptedServer server{socketPath};
};

TEST_F(ToolCommandTest, ABarShowsHowFarItIsWithRateAndTimeLeft) {
    server.Set(Protocol::CommandInfo::ONGOING, 25);
    TerminalRun run(Create());
    ASSERT_TRUE(run.Await("Creating track 1  [█████               ] 25.0 MiB of 100 MiB  "))
        << run.Text();
    ASSERT_TRUE(run.Await(" left"));
    server.Set(Protocol::CommandInfo::ONGOING, 50);
    ASSERT_TRUE(run.Await("[██████████          ] 50.0 MiB of 100 MiB"));
    server.Set(Protocol::CommandInfo::FINISHED, 100);
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_THAT(run.Text(),
                ContainsRegex("\\] 100 MiB of 100 MiB .*\nTrack 1 created, 100 MiB\r\n$"));
}

TEST_F(ToolCommandTest, QuietlyThereIsNoBar) {
    server.Set(Protocol::CommandInfo::ONGOING, 25);
    std::vector<std::string> command = Create();
    command.emplace_back("-q");
    server.Hang();
    TerminalRun run(command);
    ASSERT_TRUE(server.AwaitHanging());
    server.Set(Protocol::CommandInfo::FINISHED, 100);
    server.Go();
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_EQ(run.Text(), "1\r\n");
}

TEST_F(ToolCommandTest, ACancelledCommandIsAFailure) {
    server.Set(Protocol::CommandInfo::CANCELED, 40);
    const ToolRun run({"track", "create", "1M", "--server", "unix:" + socketPath});
    EXPECT_EQ(run.ExitCode(), 1);
    EXPECT_EQ(run.Output(), "");
    EXPECT_EQ(run.Errors(), "brantel: Command 5 was cancelled by the server at 40 %\n");
}

TEST_F(ToolCommandTest, InterruptedItSaysThatTheCommandGoesOn) {
    server.Set(Protocol::CommandInfo::ONGOING, 40);
    TerminalRun run(Create());
    ASSERT_TRUE(run.Await("40.0 MiB of 100 MiB"));
    run.Type("\x03");
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_THAT(run.Text(), EndsWith("brantel: Interrupted; command 5 goes on on the server: "
                                     "brantel command watch 5 follows it\r\n"));
}

TEST_F(ToolCommandTest, AnInterruptEndsACallThatIsNeverAnswered) {
    server.Hang();
    ProgramRun run(Create());
    ASSERT_TRUE(server.AwaitHanging());
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_EQ(run.Errors(),
              "brantel: Interrupted; The server at unix:" + socketPath + " does not answer\n");
}

TEST_F(ToolCommandTest, ASecondInterruptEndsItAtOnce) {
    server.Hang();
    ProgramRun run(Create());
    ASSERT_TRUE(server.AwaitHanging());
    run.Signal(SIGTERM);
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_EQ(run.Errors(), "brantel: Ended at once by a second signal\n");
}

TEST_F(ToolCommandTest, CommandsUnderWayAreListed) {
    server.Set(Protocol::CommandInfo::ONGOING, 40);
    const ToolRun json({"command", "ls", "-j", "--server", "unix:" + socketPath});
    EXPECT_EQ(json.Output(), "{\"command\":5,\"state\":\"ongoing\",\"percent\":40}\n");
    const ToolRun table({"command", "ls", "--server", "unix:" + socketPath}, {{"LC_ALL", "C"}});
    EXPECT_THAT(table.Output(), HasSubstr("5  ongoing  ########............  40%\n"));
}

TEST_F(ToolCommandTest, WatchingWithoutANumberFollowsWhatIsUnderWay) {
    server.Set(Protocol::CommandInfo::ONGOING, 40);
    TerminalRun run(Command({"command", "watch"}));
    ASSERT_TRUE(run.Await("Command 5  [████████            ] 40 %"));
    server.Set(Protocol::CommandInfo::FINISHED, 100);
    EXPECT_EQ(run.Wait(), 0);
    EXPECT_THAT(run.Text(), EndsWith("Command 5 finished\r\n"));
}

}  // namespace
}  // namespace Brantel::Tests
