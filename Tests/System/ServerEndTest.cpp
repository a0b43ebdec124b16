// How a server ends.

#include "Support/ProcessState.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/sockios.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace Brantel::Tests {
namespace {

using BrantelStorageApi::Request;
using BrantelStorageApi::Response;
using Services::FileDescriptorServiceConnection;
using testing::HasSubstr;

// A client that sends requests without waiting for the answers.
class RawClient {
  public:
    explicit RawClient(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::system_error(errno, std::generic_category(), "connect to " + path);
        }
        observed = dup(fd);
        connection = std::make_unique<FileDescriptorServiceConnection>(fd);
    }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    ~RawClient() { close(observed); }

    Response Call(const Request& request) const {
        Response response;
        connection->Send(request);
        connection->Receive(response);
        return response;
    }

    // A reader of a new service has handle 1. Returns when the server has taken the request in.
    bool WaitForever(long track) const {
        Request open;
        open.set_operation(BrantelStorageApi::OPERATION_TrackReader_Constructor);
        open.mutable_trackreader_constructor()->set_trackid(track);
        if (!Call(open).is_success()) {
            return false;
        }
        Request wait;
        wait.set_operation(BrantelStorageApi::OPERATION_TrackReader_Wait);
        wait.mutable_trackreader_wait()->set_object_handle(1);
        wait.mutable_trackreader_wait()->mutable_timecode()->set_nanoseconds(0);
        wait.mutable_trackreader_wait()->set_timeout(-1);
        connection->Send(wait);
        return Eventually([this] {
            int unread = -1;
            return ioctl(observed, SIOCOUTQ, &unread) == 0 && unread == 0;
        });
    }

    // Whether some of an answer is there to be taken.
    bool IsAnswered() const {
        char byte = 0;
        return recv(observed, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
    }

    FileDescriptorServiceConnection& Connection() const { return *connection; }

    // Waits for the end of the stream; false when anything else comes.
    bool SeesTheEnd() const {
        char byte = 0;
        return recv(observed, &byte, 1, 0) == 0;
    }

  private:
    std::unique_ptr<FileDescriptorServiceConnection> connection;
    int observed = -1;
};

class ServerEndTest : public testing::Test {
  protected:
    TemporaryFolder folder;
    ServerProcess server{folder.File("storage.sock")};
};

TEST_F(ServerEndTest, EachStopSignalEndsItInGoodOrder) {
    EXPECT_EQ(server.Stop(SIGTERM), 0) << server.Process().Errors();
    ServerProcess other(folder.File("other.sock"));
    EXPECT_EQ(other.Stop(SIGINT), 0) << other.Process().Errors();
}

TEST_F(ServerEndTest, TheSocketFileIsRemoved) {
    ASSERT_TRUE(std::filesystem::exists(server.SocketPath()));
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(server.SocketPath()));
}

TEST_F(ServerEndTest, IdleConnectionsDoNotHoldItUp) {
    constexpr int count = 100;
    std::list<RawClient> clients;
    for (int i = 0; i < count; ++i) {
        clients.emplace_back(server.SocketPath());
    }
    // All are served by then: connections are accepted in their order.
    Request list;
    list.set_operation(BrantelStorageApi::OPERATION_TrackStorage_ListTracks);
    list.mutable_trackstorage_listtracks();
    ASSERT_TRUE(clients.back().Call(list).is_success());
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
    for (const RawClient& client : clients) {
        EXPECT_TRUE(client.SeesTheEnd());
    }
}

TEST_F(ServerEndTest, ABlockedWaitDoesNotHoldItUpAndFails) {
    const auto client = server.ConnectOverTcp();
    const long track = CreateTrack(*client);
    const RawClient waiting(server.SocketPath());
    ASSERT_TRUE(waiting.WaitForever(track));
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
    Response response;
    try {
        waiting.Connection().Receive(response);
        EXPECT_FALSE(response.is_success());
        EXPECT_NE(response.exception(), "");
    } catch (const SocketDisconnected&) {
        // The connection was closed before the answer could leave.
    }
}

TEST_F(ServerEndTest, ClientsThatOutliveItAreTold) {
    const auto client = server.ConnectOverTcp();
    CreateTrack(*client);
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_THROW(client->ListTracks(), SocketDisconnected);
}

TEST_F(ServerEndTest, AClosedStandardOutputDoesNotEndIt) {
    ProgramRun withoutOutput({"/bin/sh", "-c",
                              "exec '" + ServerProcess::Program() +
                                  "' --engine memory --listen 'unix:" + folder.File("a.sock") +
                                  "' >&-"});
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(folder.File("a.sock")); }));
    withoutOutput.Signal(SIGTERM);
    EXPECT_EQ(withoutOutput.Wait(ServerProcess::endLimit), 0) << withoutOutput.Errors();
}

TEST_F(ServerEndTest, NothingButAStopSignalEndsIt) {
    server.Process().Signal(SIGPIPE);
    server.Process().Signal(SIGHUP);
    EXPECT_EQ(CreateTrack(*server.ConnectOverUnix()), 1);
}

TEST_F(ServerEndTest, ASecondStopSignalIsHarmless) {
    server.Process().Signal(SIGTERM);
    server.Process().Signal(SIGTERM);
    server.Process().Signal(SIGINT);
    EXPECT_EQ(server.Process().Wait(ServerProcess::endLimit), 0) << server.Process().Errors();
}

TEST_F(ServerEndTest, AStoppedClientInTheMiddleOfARequestDoesNotHoldItUp) {
    const ProgramRun stopped({"/bin/bash", "-c",
                              "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(server.Port()) +
                                  "; printf '\\005\\010' >&3; echo sent; kill -STOP $$"});
    ASSERT_TRUE(Eventually([&] { return stopped.Output() == "sent\n"; }));
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
}

TEST_F(ServerEndTest, AClientThatTakesNoAnswerDoesNotHoldItUp) {
    const auto client = server.ConnectOverUnix();
    const long track = CreateTrack(*client, 256L << 20U);
    AppendChunk(*client, track, 1, std::string(8'000'000, 'a'));
    const RawClient greedy(server.SocketPath());
    Request open;
    open.set_operation(BrantelStorageApi::OPERATION_TrackReader_Constructor);
    open.mutable_trackreader_constructor()->set_trackid(track);
    ASSERT_TRUE(greedy.Call(open).is_success());
    Request get;
    get.set_operation(BrantelStorageApi::OPERATION_TrackReader_GetChunk);
    get.mutable_trackreader_getchunk()->set_object_handle(1);
    get.mutable_trackreader_getchunk()->mutable_timecode()->set_nanoseconds(1);
    get.mutable_trackreader_getchunk()->mutable_keys();
    greedy.Connection().Send(get);
    ASSERT_TRUE(Eventually([&] { return greedy.IsAnswered(); }));
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
}

TEST_F(ServerEndTest, EveryAppendThatWasAnsweredUnderLoadIsThereAfterwards) {
    constexpr int writers = 4;
    static constexpr long enough = 25;
    const auto options = ServerProcess::OnFolder(folder.File("store"));
    std::array<std::atomic<long>, writers> answered{};
    std::vector<std::thread> threads;
    {
        ServerProcess loaded(folder.File("loaded.sock"), options);
        const auto client = loaded.ConnectOverUnix();
        for (int i = 0; i < writers; ++i) {
            const long track = CreateTrack(*client);
            threads.emplace_back([&answered, &loaded, i, track] {
                const auto own = i % 2 == 0 ? loaded.ConnectOverUnix() : loaded.ConnectOverTcp();
                try {
                    for (long time = 1;; ++time) {
                        AppendChunk(*own, track, time, std::to_string(time));
                        answered.at(static_cast<std::size_t>(i)) = time;
                    }
                } catch (const std::runtime_error&) {
                    // The end of the server.
                }
            });
        }
        ASSERT_TRUE(Eventually([&answered] {
            return std::all_of(answered.begin(), answered.end(),
                               [](const std::atomic<long>& last) { return last >= enough; });
        }));
        EXPECT_EQ(loaded.Stop(), 0) << loaded.Process().Errors();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    const ServerProcess again(folder.File("loaded.sock"), options);
    const auto client = again.ConnectOverUnix();
    for (int i = 0; i < writers; ++i) {
        const long last = answered.at(static_cast<std::size_t>(i));
        EXPECT_EQ(ReadChunk(*client, i + 1, last), std::to_string(last));
        EXPECT_EQ(ReadChunk(*client, i + 1, 1), "1");
    }
}

}  // namespace
}  // namespace Brantel::Tests
