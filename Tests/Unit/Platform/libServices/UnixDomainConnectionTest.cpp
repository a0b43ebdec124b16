#include "ConnectionProbe.h"
#include "Support/ProcessState.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"
#include "Support/Waiting.h"

#include <libServices/ListeningSocket.h>
#include <libServices/OwnedDescriptor.h>
#include <libServices/SocketAddress.h>
#include <libServices/SocketDisconnected.h>
#include <libServices/UnixDomainConnection.h>

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace Brantel::Services {
namespace {

using google::protobuf::StringValue;
using Tests::OptionOf;

std::string ConnectError(const std::string& path) {
    try {
        const UnixDomainConnection connection(path);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "connected";
}

class UnixDomainConnectionTest : public testing::Test {
  protected:
    // A plain socket that listens on the path; `queue` connections more than one may wait.
    OwnedDescriptor Listen(int queue = 16) const {
        OwnedDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const SocketAddress address = SocketAddress::OfUnixPath(path);
        EXPECT_EQ(0, bind(listener.Get(), address.Get(), address.Size()));
        EXPECT_EQ(0, listen(listener.Get(), queue));
        return listener;
    }
    static int Accept(const OwnedDescriptor& listener) {
        return accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
    }

    const Tests::TemporaryFolder folder;
    const std::string path = folder.File("s");
};

TEST_F(UnixDomainConnectionTest, MessagesTravelBothWays) {
    const OwnedDescriptor listener = Listen();
    UnixDomainConnection client(path);
    FileDescriptorServiceConnection server(Accept(listener));
    StringValue message;
    message.set_value("there");
    StringValue received;
    ASSERT_TRUE(client.Send(message));
    ASSERT_TRUE(server.Receive(received));
    EXPECT_EQ("there", received.value());
    ASSERT_TRUE(server.Send(message));
    ASSERT_TRUE(client.Receive(received));
    EXPECT_EQ("there", received.value());
}

TEST_F(UnixDomainConnectionTest, AMissingSocketIsReportedWithItsPath) {
    EXPECT_EQ("Could not connect to " + path + ": No such file or directory", ConnectError(path));
}

TEST_F(UnixDomainConnectionTest, ASocketOnWhichNobodyListensRefuses) {
    Listen();
    EXPECT_EQ("Could not connect to " + path + ": Connection refused", ConnectError(path));
}

TEST_F(UnixDomainConnectionTest, AnOrdinaryFileRefuses) {
    std::ofstream(path) << "no socket";
    EXPECT_EQ("Could not connect to " + path + ": Connection refused", ConnectError(path));
}

TEST_F(UnixDomainConnectionTest, APathOf107BytesIsConnectedTo) {
    const std::string longPath =
        folder.Path() + "/" +
        std::string(SocketAddress::highestPathSize - folder.Path().size() - 1, 'p');
    const ListeningSocket listener = ListeningSocket::OnUnix(longPath, 0600);
    EXPECT_EQ("connected", ConnectError(longPath));
}

TEST_F(UnixDomainConnectionTest, ALongerPathIsRefused) {
    const std::string longPath(108, 'p');
    EXPECT_EQ("The path of a Unix-domain socket has 108 bytes, over the limit of 107: " + longPath,
              ConnectError(longPath));
}

TEST_F(UnixDomainConnectionTest, APathWithAZeroByteIsRefused) {
    const OwnedDescriptor listener = Listen();
    EXPECT_EQ("The path of a Unix-domain socket holds a zero byte: " + path,
              ConnectError(path + '\0' + "x"));
}

TEST_F(UnixDomainConnectionTest, TheSocketHasTheLargeSendBufferAndIsClosedOnExec) {
    const OwnedDescriptor listener = Listen();
    const UnixDomainConnection client(path);
    const int fd = ConnectionProbe::DescriptorOf(client);
    const int wanted = 212992;
    ASSERT_EQ(0, setsockopt(listener.Get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted)));
    EXPECT_EQ(OptionOf(listener.Get(), SOL_SOCKET, SO_SNDBUF), OptionOf(fd, SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
}

TEST_F(UnixDomainConnectionTest, TheMessageLimitReachesTheBase) {
    const OwnedDescriptor listener = Listen();
    constexpr std::size_t limit = 1000;
    EXPECT_EQ(limit, UnixDomainConnection(path, limit).MessageLimit());
    EXPECT_EQ(FileDescriptorServiceConnection::defaultMessageLimit,
              UnixDomainConnection(path).MessageLimit());
}

TEST_F(UnixDomainConnectionTest, AFailedConnectLeavesNoDescriptor) {
    const std::size_t before = Tests::OpenDescriptors();
    ConnectError(path);
    EXPECT_EQ(before, Tests::OpenDescriptors());
}

TEST_F(UnixDomainConnectionTest, WithoutAnyDescriptorLeftTheReasonIsTold) {
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    ASSERT_TRUE(Tests::SetSoftLimit(RLIMIT_NOFILE, 0));
    const std::string error = ConnectError(path);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ("Could not connect to " + path + ": Too many open files", error);
}

TEST_F(UnixDomainConnectionTest, TheEndOfThePeerIsALostConnection) {
    const OwnedDescriptor listener = Listen();
    UnixDomainConnection client(path);
    { const OwnedDescriptor server(Accept(listener)); }
    EXPECT_TRUE(client.PeerGone());
    StringValue received;
    EXPECT_THROW(client.Receive(received), SocketDisconnected);
}

TEST_F(UnixDomainConnectionTest, SignalsDoNotEndAConnectThatWaitsForAPlaceInTheQueue) {
    static std::atomic<int> handled{0};
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { ++handled; };
    sigaction(SIGUSR1, &action, &before);
    const OwnedDescriptor listener = Listen(0);
    const UnixDomainConnection first(path);
    std::atomic<pid_t> id{0};
    std::string result;
    std::thread thread([&] {
        id = gettid();
        result = ConnectError(path);
    });
    for (int count = 0; count < 20; ++count) {
        EXPECT_TRUE(Tests::Eventually([&] { return id != 0 && Tests::IsAsleep(id); }));
        const int seen = handled;
        pthread_kill(thread.native_handle(), SIGUSR1);
        EXPECT_TRUE(Tests::Eventually([&] { return handled > seen; }));
    }
    const OwnedDescriptor firstServed(Accept(listener));
    const OwnedDescriptor secondServed(Accept(listener));
    thread.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ("connected", result);
}

}  // namespace
}  // namespace Brantel::Services
