// What a server says when it starts, or why it does not.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

class ServerStartTest : public testing::Test {
  protected:
    // What the program says when it ends at once.
    std::string ErrorsOf(const std::vector<std::string>& arguments, int exitCode) {
        std::vector<std::string> command = {ServerProcess::Program()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramRun run(command);
        EXPECT_EQ(run.Wait(), exitCode) << run.Errors();
        EXPECT_EQ(run.Output(), "");
        return run.Errors();
    }
    std::string RefusalOf(const std::string& address) {
        return ErrorsOf({"--engine", "memory", "--listen", address}, 1);
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
};

TEST_F(ServerStartTest, ItSaysWhereItListensWithThePortThatItTook) {
    const ServerProcess server(socketPath);
    EXPECT_THAT(server.Addresses(),
                ElementsAre("unix:" + socketPath, MatchesRegex("tcp:127\\.0\\.0\\.1:[1-9][0-9]+")));
}

TEST_F(ServerStartTest, TheStandardOutputSaysTheSameInWords) {
    ServerProcess server(socketPath);
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_EQ(server.Process().Output(), "Listening on unix:" + socketPath + "\n" +
                                             "Listening on " + server.Addresses().at(1) + "\n");
}

TEST_F(ServerStartTest, AnIpV6AddressIsSaidAsItIsGiven) {
    if (!HasIpV6()) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    ProgramRun server({ServerProcess::Program(), "--engine", "memory", "--listen", "tcp:[::1]:0"});
    ASSERT_TRUE(Eventually([&] { return server.Output().ends_with("\n"); }));
    EXPECT_THAT(server.Output(), MatchesRegex("Listening on tcp:\\[::1\\]:[1-9][0-9]+\n"));
}

TEST_F(ServerStartTest, WrongArgumentsAreMisuseWithTheUsage) {
    EXPECT_THAT(ErrorsOf({"--colour"}, 2), HasSubstr("Usage: brantel-storaged"));
    EXPECT_THAT(ErrorsOf({"--engine", "memory", "--listen", "ftp:x"}, 2), HasSubstr("ftp:x"));
    EXPECT_THAT(ErrorsOf({"--engine", "paper", "--listen", "unix:" + socketPath}, 2),
                HasSubstr("paper"));
}

TEST_F(ServerStartTest, HelpGoesToTheStandardOutput) {
    ProgramRun help({ServerProcess::Program(), "--help"});
    EXPECT_EQ(help.Wait(), 0);
    EXPECT_THAT(help.Output(), HasSubstr("--listen"));
    EXPECT_EQ(help.Errors(), "");
}

TEST_F(ServerStartTest, ASocketInAFolderThatIsNotThereIsRefused) {
    const std::string path = folder.File("nowhere/storage.sock");
    const std::string errors = RefusalOf("unix:" + path);
    EXPECT_THAT(errors, HasSubstr(path));
    EXPECT_THAT(errors, HasSubstr("No such file or directory"));
}

TEST_F(ServerStartTest, APathThatIsTooLongIsRefused) {
    EXPECT_THAT(RefusalOf("unix:/tmp/" + std::string(200, 'a')), HasSubstr("107"));
}

TEST_F(ServerStartTest, AFileThatIsNoSocketIsLeftAsItIs) {
    std::ofstream(socketPath) << "precious";
    EXPECT_THAT(RefusalOf("unix:" + socketPath), HasSubstr(socketPath));
    std::string text;
    std::ifstream(socketPath) >> text;
    EXPECT_EQ(text, "precious");
}

TEST_F(ServerStartTest, APortThatIsTakenIsRefused) {
    const PlainTcpListener taken("127.0.0.1");
    const std::string port = std::to_string(taken.Port());
    const std::string errors = RefusalOf("tcp:127.0.0.1:" + port);
    EXPECT_THAT(errors, HasSubstr("127.0.0.1 port " + port));
    EXPECT_THAT(errors, HasSubstr("Address already in use"));
}

TEST_F(ServerStartTest, AHostThatNobodyKnowsIsRefused) {
    EXPECT_THAT(RefusalOf("tcp:no-such-host.invalid:0"), HasSubstr("no-such-host.invalid"));
}

TEST_F(ServerStartTest, ARefusedAddressLeavesNoSocketBehind) {
    ErrorsOf({"--engine", "memory", "--listen", "unix:" + socketPath, "--listen",
              "unix:" + folder.File("nowhere/storage.sock")},
             1);
    EXPECT_FALSE(std::filesystem::exists(socketPath));
}

TEST_F(ServerStartTest, AReadyDescriptorThatIsNotOpenIsRefused) {
    const std::string errors =
        ErrorsOf({"--engine", "memory", "--listen", "unix:" + socketPath, "--ready-fd", "57"}, 1);
    EXPECT_THAT(errors, HasSubstr("57"));
    EXPECT_THAT(errors, HasSubstr("Bad file descriptor"));
    EXPECT_FALSE(std::filesystem::exists(socketPath));
}

TEST_F(ServerStartTest, ATcpAddressForOtherMachinesIsRefusedUnlessItIsAccepted) {
    const std::string errors = RefusalOf("tcp:0.0.0.0:0");
    EXPECT_THAT(errors, MatchesRegex(".*Address tcp:0\\.0\\.0\\.0:[0-9]+ is reached from other "
                                     "machines.*--insecure-listen.*\n"));
    ProgramRun server({ServerProcess::Program(), "--engine", "memory", "--listen", "tcp:0.0.0.0:0",
                       "--insecure-listen"});
    EXPECT_TRUE(Eventually([&] { return server.Output().ends_with("\n"); })) << server.Errors();
}

TEST_F(ServerStartTest, TheAddressesAreLeftInAFile) {
    const std::string path = folder.File("addresses");
    const ServerProcess server(socketPath, {"--port-file", path});
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(path); }));
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    EXPECT_EQ(lines, server.Addresses());
    EXPECT_THAT(ErrorsOf({"--engine", "memory", "--listen", "unix:" + folder.File("b.sock"),
                          "--port-file", folder.File("nowhere/addresses")},
                         1),
                HasSubstr("Could not write " + folder.File("nowhere/addresses")));
}

TEST_F(ServerStartTest, WithoutAnAddressItListensInTheFolderOfTheUser) {
    std::vector<std::string> command = {ServerProcess::Program(), "--engine", "memory"};
    if (geteuid() == 0) {
        // Root's own socket lies where a real server may be.
        const std::vector<std::string> asOther = {"/usr/bin/setpriv", "--reuid", "65534",
                                                  "--regid",          "65534",   "--clear-groups"};
        std::vector<std::string> look = asOther;
        look.insert(look.end(), {"/usr/bin/test", "-x", ServerProcess::Program()});
        if (ProgramRun(look).Wait() != 0) {
            GTEST_SKIP() << "SKIPPED: the program lies where only root may run it";
        }
        ASSERT_EQ(chown(folder.Path().c_str(), 65534, 65534), 0);
        command.insert(command.begin(), asOther.begin(), asOther.end());
    }
    ProgramRun server(command, {{"XDG_RUNTIME_DIR", folder.Path()}});
    ASSERT_TRUE(Eventually([&] { return server.Output().ends_with("\n"); }));
    EXPECT_EQ(server.Output(), "Listening on unix:" + folder.File("brantel/storage.sock") + "\n");
}

TEST_F(ServerStartTest, ASecondServerOnALivingSocketIsRefused) {
    const ServerProcess server(socketPath);
    EXPECT_THAT(RefusalOf("unix:" + socketPath), HasSubstr(socketPath));
    EXPECT_EQ(CreateTrack(*server.ConnectOverUnix()), 1);
}

TEST_F(ServerStartTest, TheSocketOfAKilledServerIsTakenOver) {
    {
        ServerProcess killed(socketPath);
        killed.Process().Signal(SIGKILL);
        ASSERT_EQ(killed.Process().Wait(), 128 + SIGKILL);
    }
    ASSERT_TRUE(std::filesystem::exists(socketPath));
    const ServerProcess server(socketPath);
    EXPECT_EQ(CreateTrack(*server.ConnectOverUnix()), 1);
}

TEST_F(ServerStartTest, TheSocketIsForItsUserAndItsGroupUnlessOtherwiseAskedFor) {
    const ServerProcess server(socketPath);
    struct stat file {};
    ASSERT_EQ(stat(socketPath.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0660U);
}

TEST_F(ServerStartTest, TheSocketHasTheModeThatWasAskedFor) {
    const ServerProcess server(socketPath, {"--socket-mode", "600"});
    struct stat file {};
    ASSERT_EQ(stat(socketPath.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0600U);
}

TEST_F(ServerStartTest, AnAuditFileThatCannotBeWrittenIsRefused) {
    const std::string path = folder.File("nowhere/audit");
    EXPECT_EQ(ErrorsOf({"--config", "", "--engine", "memory", "--audit-file", path, "--listen",
                        "unix:" + socketPath},
                       1),
              "brantel-storaged: " + path +
                  ": the file could not be opened for writing: No such file or directory; make its "
                  "folder for the server's user, or choose another file by --audit-file\n");
}

TEST_F(ServerStartTest, TooFewDescriptorsAreAWarning) {
    ProgramRun server({"/bin/bash", "-c",
                       "ulimit -n 700; exec '" + ServerProcess::Program() +
                           "' --config '' --engine memory --http off --listen 'unix:" + socketPath +
                           "'"});
    EXPECT_TRUE(Eventually([&] { return server.Output().ends_with("\n"); })) << server.Errors();
    EXPECT_TRUE(Eventually([&] {
        return server.Errors().find(
                   " warning: The system allows 700 open files, too few for "
                   "max-connections 4096") != std::string::npos;
    })) << server.Errors();
}

// A start that fails, and all that the last line of its log must say.
struct FailedStart {
    std::vector<std::string> arguments;
    std::vector<std::string> says;
};

TEST_F(ServerStartTest, WhateverKeepsItFromStartingIsSaidWithWhatToDo) {
    const PlainTcpListener taken("127.0.0.1");
    const std::string port = std::to_string(taken.Port());
    const std::string nowhere = folder.File("nowhere/it");
    const std::string socket = "unix:" + socketPath;
    const std::string missing = "No such file or directory";
    const std::string inUse = "Address already in use";
    const std::vector<std::string> memory = {"--engine", "memory", "--listen", socket};
    const auto with = [&memory](const std::vector<std::string>& more) {
        std::vector<std::string> all = memory;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    };
    std::ofstream(folder.File("file")) << "no store";
    const std::vector<FailedStart> starts = {
        {{"--engine", "memory", "--listen", "unix:" + nowhere}, {nowhere, missing, "--listen"}},
        {{"--engine", "memory", "--listen", "tcp:127.0.0.1:" + port}, {port, inUse, "--listen"}},
        {{"--engine", "memory", "--listen", "tcp:*:0"}, {"reached from", "--insecure-listen"}},
        {with({"--http", "127.0.0.1:" + port}), {port, inUse, "--http"}},
        {with({"--config", nowhere}), {nowhere, missing, "--config"}},
        {with({"--audit-file", nowhere}), {nowhere, missing, "--audit-file"}},
        {with({"--port-file", nowhere}), {nowhere, missing, "--port-file", "make its folder"}},
        {with({"--ready-fd", "57"}), {"57", "Bad file descriptor", "--ready-fd", "pass one"}},
        {{"--listen", socket, "--data", nowhere}, {nowhere, missing, "--data"}},
        {{"--listen", socket, "--data", folder.File("file")}, {"is not a folder", "--data"}},
        {{"--listen", socket, "--data", "/proc/x"}, {"/proc/x", "making the folder", "--data"}},
    };
    for (const FailedStart& start : starts) {
        const std::string errors = ErrorsOf(start.arguments, 1);
        const std::string lastLine = errors.substr(errors.rfind('\n', errors.size() - 2) + 1);
        for (const std::string& text : start.says) {
            EXPECT_THAT(lastLine, HasSubstr(text));
        }
        EXPECT_FALSE(std::filesystem::exists(socketPath)) << errors;
    }
}

TEST_F(ServerStartTest, ARefusedAddressSaysWhatToDo) {
    const ServerProcess server(socketPath);
    EXPECT_THAT(RefusalOf("unix:" + socketPath),
                HasSubstr("Could not listen on " + socketPath +
                          ": a server already answers there; end what is there, mend the address, "
                          "or choose another one by --listen"));
}

}  // namespace
}  // namespace Brantel::Tests
