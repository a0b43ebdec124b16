// A server that a service manager starts: sockets that it is passed, and what it tells.

#include "HeldFile.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;
using testing::StartsWith;

// A Unix-domain socket with a name.
class NamedSocket {
  public:
    NamedSocket(const std::string& path, int type) : fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        const timeval limit{60, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    }
    NamedSocket(const NamedSocket&) = delete;
    NamedSocket& operator=(const NamedSocket&) = delete;
    ~NamedSocket() { close(fd); }

    int Get() const { return fd; }
    std::string Receive() const {
        std::array<char, 4096> text{};
        const ssize_t size = recv(fd, text.data(), text.size(), 0);
        return size <= 0 ? "nothing" : std::string(text.data(), static_cast<std::size_t>(size));
    }
    // The next message that is none of those that come again and again.
    std::string Next() const {
        for (;;) {
            const std::string message = Receive();
            if (message != "WATCHDOG=1" && !message.starts_with("STATUS=Serving") &&
                !message.starts_with("EXTEND_TIMEOUT_USEC=")) {
                return message;
            }
        }
    }
    // Whether the very next messages hold this one, within the time of a test.
    bool Hears(const std::string& wanted) const {
        for (;;) {
            const std::string message = Receive();
            if (message == wanted || message == "nothing") {
                return message == wanted;
            }
        }
    }

  private:
    const int fd;
};

class ServerServiceTest : public testing::Test {
  protected:
    // The shell knows the number of the process that it becomes.
    std::unique_ptr<ProgramRun> StartWithSocket(int passed, const std::string& more = "") const {
        return std::make_unique<ProgramRun>(
            std::vector<std::string>{"/bin/sh", "-c",
                                     "LISTEN_FDS=1 LISTEN_PID=$$ exec '" +
                                         ServerProcess::Program() +
                                         "' --config '' --engine memory --http off " + more},
            std::vector<std::pair<std::string, std::string>>{}, passed);
    }
    static bool Serves(const ProgramRun& server) {
        return Eventually([&server] { return server.Output().ends_with("\n"); });
    }

    TemporaryFolder folder;
    const std::string path = folder.File("passed.sock");
};

TEST_F(ServerServiceTest, ItServesOnTheSocketThatItIsPassedAndLeavesItsFile) {
    const NamedSocket passed(path, SOCK_STREAM);
    ASSERT_EQ(listen(passed.Get(), 10), 0);
    const auto server = StartWithSocket(passed.Get());
    ASSERT_TRUE(Serves(*server)) << server->Errors();
    EXPECT_EQ(server->Output(), "Listening on unix:" + path + "\n");
    StorageClientX client;
    ASSERT_TRUE(client.ConnectToSlave(path));
    EXPECT_EQ(CreateTrack(client), 1);
    server->Signal(SIGTERM);
    EXPECT_EQ(server->Wait(ServerProcess::endLimit), 0) << server->Errors();
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(ServerServiceTest, ItServesOnATcpSocketThatItIsPassedBesideItsOwnAddress) {
    const PlainTcpListener passed("127.0.0.1");
    const std::string own = folder.File("own.sock");
    const auto server = StartWithSocket(passed.Get(), "--tcp-role admin --listen unix:" + own);
    ASSERT_TRUE(Eventually([&] { return server->Output().find(own + "\n") != std::string::npos; }));
    StorageClientX client;
    ASSERT_TRUE(client.ConnectToSlave("127.0.0.1", static_cast<short>(passed.Port()), 60'000));
    EXPECT_EQ(CreateTrack(client), 1);
    EXPECT_EQ(server->Output(), "Listening on tcp:127.0.0.1:" + std::to_string(passed.Port()) +
                                    "\nListening on unix:" + own + "\n");
}

TEST_F(ServerServiceTest, AnAddressWhoseSocketIsPassedIsNotTakenTwice) {
    const NamedSocket passed(path, SOCK_STREAM);
    ASSERT_EQ(listen(passed.Get(), 10), 0);
    const auto server = StartWithSocket(passed.Get(), "--listen unix:" + path);
    ASSERT_TRUE(Serves(*server)) << server->Errors();
    EXPECT_EQ(server->Output(), "Listening on unix:" + path + "\n");
}

TEST_F(ServerServiceTest, ASocketOfTheWrongKindIsRefused) {
    const NamedSocket passed(path, SOCK_DGRAM);
    const auto server = StartWithSocket(passed.Get());
    EXPECT_EQ(server->Wait(), 1);
    EXPECT_THAT(server->Errors(),
                HasSubstr("Could not listen on descriptor 3: it is not a stream socket; whoever "
                          "starts the server passes it stream sockets"));
}

TEST_F(ServerServiceTest, TheManagerIsToldOfEveryStepAndOfLife) {
    const NamedSocket manager(folder.File("notify"), SOCK_DGRAM);
    const std::string file = folder.File("storage.toml");
    {
        const int made = open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        close(made);
    }
    ProgramRun server({ServerProcess::Program(), "--config", file, "--engine", "memory", "--http",
                       "off", "--listen", "unix:" + path},
                      {{"NOTIFY_SOCKET", folder.File("notify")}, {"WATCHDOG_USEC", "200000"}});
    EXPECT_EQ(manager.Next(), "STATUS=Opening the tracks, recovering what an earlier run left");
    EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=Serving 0 connections on unix:" + path);
    EXPECT_TRUE(manager.Hears("WATCHDOG=1"));
    StorageClientX client;
    ASSERT_TRUE(client.ConnectToSlave(path));
    EXPECT_TRUE(manager.Hears("STATUS=Serving 1 connection on unix:" + path));
    server.Signal(SIGHUP);
    EXPECT_THAT(manager.Next(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_THAT(manager.Next(), StartsWith("READY=1\n"));
    server.Signal(SIGTERM);
    EXPECT_EQ(manager.Next(), "STOPPING=1\nSTATUS=Stopping");
    EXPECT_EQ(server.Wait(ServerProcess::endLimit), 0);
}

TEST_F(ServerServiceTest, TheManagerIsToldThatALongStartGoesOn) {
    const std::vector<std::string> onFolder = ServerProcess::OnFolder(folder.File("data"));
    ASSERT_EQ(ServerProcess(path, onFolder).Stop(), 0);
    const HeldFile held(folder.File("data/FORMAT"));
    if (!held.IsHeld()) {
        GTEST_SKIP() << "SKIPPED: the file system of the temporary folder has no leases";
    }
    const NamedSocket manager(folder.File("notify"), SOCK_DGRAM);
    std::vector<std::string> command = {
        ServerProcess::Program(), "--config", "", "--http", "off", "--listen", "unix:" + path};
    command.insert(command.end(), onFolder.begin(), onFolder.end());
    const ProgramRun server(command, {{"NOTIFY_SOCKET", folder.File("notify")}});
    EXPECT_THAT(manager.Receive(), StartsWith("STATUS=Opening the tracks"));
    EXPECT_EQ(manager.Receive(),
              "EXTEND_TIMEOUT_USEC=10000000\nSTATUS=Opening the tracks, recovering what an earlier "
              "run left, for 5 s");
    server.Signal(SIGTERM);
    EXPECT_EQ(manager.Receive(), "STOPPING=1\nSTATUS=Stopping");
}

}  // namespace
}  // namespace Brantel::Tests
