// How the tool finds its server, and what it says when there is none.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"
#include "ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace Brantel::Tests {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class ToolPingTest : public testing::Test {
  protected:
    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    const std::string address = "unix:" + socketPath;
};

TEST_F(ToolPingTest, AServerIsFoundByTheOption) {
    const ServerProcess server(socketPath);
    const ToolRun run({"ping", "-n", "1", "--server", address});
    EXPECT_EQ(run.ExitCode(), 0);
    EXPECT_THAT(run.Output(), MatchesRegex(address + " answered in [0-9.]+ [mu]?s\n"));
    EXPECT_EQ(run.Errors(), "");
}

TEST_F(ToolPingTest, AServerIsFoundByTheVariable) {
    const ServerProcess server(socketPath);
    const ToolRun run({"ping", "-n", "1"}, {{"BRANTEL_SERVER", server.Addresses().at(1)}});
    EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
    EXPECT_THAT(run.Output(), StartsWith("tcp:127.0.0.1:"));
}

TEST_F(ToolPingTest, TheOptionComesBeforeTheVariable) {
    const ServerProcess server(socketPath);
    const ToolRun run({"--server", address, "ping", "-n", "1"}, {{"BRANTEL_SERVER", "nonsense"}});
    EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
}

TEST_F(ToolPingTest, ManyAnswersAreSummedUp) {
    const ServerProcess server(socketPath);
    const ToolRun run({"ping", "-n", "3", "-i", "1ms", "--server", address});
    EXPECT_THAT(run.Output(), HasSubstr("3 answers: shortest "));
}

TEST_F(ToolPingTest, JsonIsOneObjectForEachAnswer) {
    const ServerProcess server(socketPath);
    const ToolRun run({"ping", "-n", "1", "-j", "--server", address});
    EXPECT_THAT(run.Output(), MatchesRegex("\\{\"server\":\"" + address +
                                           "\",\"number\":1,\"nanoseconds\":[1-9][0-9]*\\}\n"));
}

TEST_F(ToolPingTest, AMissingServerIsReportedWithHowToStartOne) {
    const ToolRun run({"ping", "--server", address});
    EXPECT_EQ(run.ExitCode(), 1);
    EXPECT_EQ(run.Output(), "");
    EXPECT_THAT(run.Errors(), StartsWith("brantel: No storage server answers at " + address +
                                         ": No such file or directory\n"));
    EXPECT_THAT(run.Errors(), HasSubstr("brantel-storaged --data FOLDER --listen " + address));
}

TEST_F(ToolPingTest, AFileThatIsNoSocketIsNamed) {
    std::ofstream(socketPath) << "not a socket";
    const ToolRun run({"ping", "--server", address});
    EXPECT_EQ(run.ExitCode(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr(address + ": that is not a socket"));
}

TEST_F(ToolPingTest, AServerThatNeverAnswersIsLeftAfterTheTimeout) {
    // The system accepts for it; nobody ever reads.
    const PlainTcpListener silent("127.0.0.1");
    const ToolRun run({"ping", "--timeout", "50ms", "--server",
                       "tcp:127.0.0.1:" + std::to_string(silent.Port())});
    EXPECT_EQ(run.ExitCode(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr("did not answer within 0.05s (--timeout)"));
}

TEST_F(ToolPingTest, WrongUsageEndsWithTwoAndTellsWhereHelpIs) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"pong"},
                                                      {"ping", "--server", "ftp:x"},
                                                      {"ping", "-n", "0"},
                                                      {"ping", "-i", "fast"},
                                                      {"ping", "--timeout", "0s"},
                                                      {"ping", "-q", "-v"},
                                                      {"ping", "--color", "pink"},
                                                      {"ping", "more"}}) {
        const ToolRun run(arguments);
        EXPECT_EQ(run.ExitCode(), 2) << arguments.back();
        EXPECT_EQ(run.Output(), "");
        EXPECT_THAT(run.Errors(), StartsWith("brantel: ")) << arguments.back();
        EXPECT_THAT(run.Errors(), HasSubstr("--help")) << arguments.back();
    }
}

TEST_F(ToolPingTest, HelpAndVersionGoToTheStandardOutput) {
    EXPECT_THAT(ToolRun({"--help"}).Output(), HasSubstr("ping"));
    EXPECT_THAT(ToolRun({"ping", "--help"}).Output(), HasSubstr("--interval"));
    EXPECT_THAT(ToolRun({"--version"}).Output(), MatchesRegex("brantel [0-9.]+\n"));
}

}  // namespace
}  // namespace Brantel::Tests
