// What a server logs, what it audits, and what SIGHUP changes while it runs.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <libServices/UnixDomainConnection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;
using testing::Not;

std::string TextOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Sends bytes as they are.
class RawClient : public Services::UnixDomainConnection {
  public:
    using UnixDomainConnection::UnixDomainConnection;
    bool SendBytes(const std::string& bytes) const {
        return send(Descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
};

class ServerLogTest : public testing::Test {
  protected:
    void Write(const std::string& text) const { std::ofstream(file) << text; }
    static bool Logs(const ServerProcess& server, const std::string& text) {
        return Eventually([&] { return Errors(server).find(text) != std::string::npos; });
    }
    static std::string Errors(const ServerProcess& server) {
        return const_cast<ServerProcess&>(server).Process().Errors();
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    const std::string file = folder.File("storage.toml");
    const std::string auditPath = folder.File("audit.log");
};

TEST_F(ServerLogTest, ChangesAndFailuresAreLoggedWithoutWhatClientsStore) {
    const ServerProcess server(socketPath);
    const auto client = server.ConnectOverUnix();
    const long track = CreateTrack(*client);
    AppendChunk(*client, track, 1, "payload");
    client->SetTrackProperties(track, {{"secret-key", "secret-value"}});
    EXPECT_THROW(client->SetTrackProperties(track, {{"storage.secret", "x"}}), std::runtime_error);
    EXPECT_THROW(client->ClearTrack(77), std::runtime_error);
    EXPECT_TRUE(Logs(server, ": ClearTrack of track 77 failed after "));
    const std::string text = Errors(server);
    EXPECT_THAT(text, HasSubstr(" info: connection 1 from " + socketPath + " process "));
    EXPECT_THAT(text, HasSubstr(": SetTrackProperties of track 1 done after "));
    EXPECT_THAT(text, HasSubstr(": SetTrackProperties of track 1 failed after "));
    EXPECT_THAT(text, HasSubstr(": CreateTrack"));
    EXPECT_THAT(text, Not(HasSubstr("secret")));
    EXPECT_THAT(text, Not(HasSubstr("payload")));
    EXPECT_THAT(text, Not(HasSubstr("Append")));
}

TEST_F(ServerLogTest, InJsonEveryLineIsAnObject) {
    ServerProcess server(socketPath, {"--log-format", "json"});
    CreateTrack(*server.ConnectOverUnix());
    ASSERT_EQ(server.Stop(), 0);
    std::istringstream lines(Errors(server));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(line.starts_with("{\"time\":\"2") && line.ends_with("}")) << line;
    }
    EXPECT_GE(count, 3);
    EXPECT_THAT(Errors(server), HasSubstr("\"operation\":\"CreateTrack\",\"outcome\":\"done\""));
}

TEST_F(ServerLogTest, AnInvalidRequestThatEndsAConnectionIsLogged) {
    const ServerProcess server(socketPath);
    const RawClient client(socketPath);
    ASSERT_TRUE(client.SendBytes("\x02\x0a\x07"));
    EXPECT_TRUE(Logs(server, "refused: Received 2 bytes that are not a")) << Errors(server);
}

TEST_F(ServerLogTest, ALogThatNobodyReadsHoldsNoClientUp) {
    constexpr int calls = 15'000;
    const std::string pipe = folder.File("pipe");
    // The pipe has room for 64 KiB and is never read, though it has a reader.
    ProgramRun server({"/bin/bash", "-c",
                       "mkfifo '" + pipe + "' && exec 9<>'" + pipe + "' && exec '" +
                           ServerProcess::Program() +
                           "' --config '' --engine memory --http off --log-level debug --listen "
                           "'unix:" +
                           socketPath + "' 2>'" + pipe + "'"});
    ASSERT_TRUE(Eventually([&] { return server.Output().ends_with("\n"); }));
    StorageClientX client;
    ASSERT_TRUE(client.ConnectToSlave(socketPath));
    for (int i = 0; i < calls; ++i) {
        // Not two lines are equal.
        EXPECT_THROW(client.GetTrackProperties(i + 100), std::runtime_error);
    }
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(ServerProcess::endLimit), 0);
}

TEST_F(ServerLogTest, TheAuditHasAFileThatSighupOpensAnew) {
    const ServerProcess server(socketPath, {"--audit-file", auditPath});
    const auto client = server.ConnectOverUnix();
    CreateTrack(*client);
    ASSERT_TRUE(
        Eventually([&] { return TextOf(auditPath).find("CreateTrack") != std::string::npos; }));
    std::filesystem::rename(auditPath, folder.File("audit.1"));
    kill(const_cast<ServerProcess&>(server).Process().Id(), SIGHUP);
    ASSERT_TRUE(Logs(server, "The settings were read again"));
    client->ClearTrack(1);
    EXPECT_TRUE(Eventually(
        [&] { return TextOf(auditPath).find("ClearTrack of track 1") != std::string::npos; }));
    EXPECT_THAT(Errors(server), Not(HasSubstr("CreateTrack")));
}

TEST_F(ServerLogTest, SighupTakesOverWhatItCanAndNamesTheRest) {
    Write("log-level = 'info'\nmax-depth = 9\nmax-workers = 1\n");
    ServerProcess server(socketPath, {"--config", file});
    Write("log-level = 'debug'\nmax-depth = 10\nmax-workers = 2\n");
    server.Process().Signal(SIGHUP);
    EXPECT_TRUE(Logs(server, "max-depth stays 9 until a restart, then it is 10"));
    EXPECT_THAT(Errors(server), HasSubstr("log-level is now \"debug\", was \"info\""));
    const auto client = server.ConnectOverUnix();
    const long track = CreateTrack(*client);
    EXPECT_TRUE(Logs(server, " debug: connection 1 from "));
    client->GetTrackReader(track, 1);
    client->GetTrackReader(track, 2);
    EXPECT_THROW(client->GetTrackReader(track, 3), std::runtime_error);
}

TEST_F(ServerLogTest, SighupGivesNewConnectionsTheirNewRole) {
    const std::string ports = folder.File("ports");
    const std::string common =
        "engine = 'memory'\nhttp = 'off'\nlisten = 'tcp:127.0.0.1:0'\n"
        "port-file = '" +
        ports + "'\n";
    Write(common + "tcp-role = 'reader'\n");
    ProgramRun server({ServerProcess::Program(), "--config", file});
    ASSERT_TRUE(Eventually([&] { return server.Output().ends_with("\n"); })) << server.Errors();
    const std::string address = TextOf(ports);
    const auto port = static_cast<short>(std::stoi(address.substr(address.rfind(':') + 1)));
    StorageClientX before;
    ASSERT_TRUE(before.ConnectToSlave("127.0.0.1", port, 60'000));
    EXPECT_TRUE(before.ListTracks().empty());
    Write(common + "tcp-role = 'admin'\n");
    server.Signal(SIGHUP);
    ASSERT_TRUE(Eventually([&] {
        return server.Errors().find("tcp-role is now \"admin\", was \"reader\"") !=
               std::string::npos;
    }));
    StorageClientX after;
    ASSERT_TRUE(after.ConnectToSlave("127.0.0.1", port, 60'000));
    EXPECT_EQ(CreateTrack(after), 1);
    EXPECT_THROW(CreateTrack(before), std::runtime_error);
}

TEST_F(ServerLogTest, ABrokenFileLeavesEverythingAsItWas) {
    Write("log-level = 'info'\n");
    ServerProcess server(socketPath, {"--config", file});
    Write("log-level = 'debug'\ncolour = 'red'\n");
    server.Process().Signal(SIGHUP);
    EXPECT_TRUE(
        Logs(server, "error: The settings stay as they were: " + file + ":2: unknown key colour"));
    server.ConnectOverUnix()->ListTracks();
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_THAT(Errors(server), Not(HasSubstr("debug: ")));
}

}  // namespace
}  // namespace Brantel::Tests
