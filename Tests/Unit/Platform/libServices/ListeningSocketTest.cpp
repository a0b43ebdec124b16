#include "Support/ChildProcess.h"
#include "Support/ProcessState.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"

#include <libServices/ListeningSocket.h>
#include <libServices/OwnedDescriptor.h>
#include <libServices/SocketAddress.h>
#include <libServices/UnixSocketFile.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Brantel::Services {
namespace {

using Tests::OptionOf;
namespace fs = std::filesystem;

std::string TcpError(const std::string& host, unsigned short port) {
    try {
        ListeningSocket::OnTcp(host, port);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "listens";
}

// Error number of a plain connect; 0 when it was answered.
int Connect(const SocketAddress& address) {
    const OwnedDescriptor client(socket(address.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(client.Get(), address.Get(), address.Size()) == 0 ? 0 : errno;
}

TEST(ListeningTcpSocketTest, PortZeroTakesAFreePortAndTellsIt) {
    const auto sockets = ListeningSocket::OnTcp("127.0.0.1", 0);
    ASSERT_EQ(1U, sockets.size());
    EXPECT_EQ("127.0.0.1", sockets[0].Address().Host());
    EXPECT_NE(0, sockets[0].Address().Port());
    EXPECT_EQ(0, Connect(sockets[0].Address()));
}

TEST(ListeningTcpSocketTest, IpV6IsListenedOn) {
    if (!Tests::HasIpV6()) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
    const auto sockets = ListeningSocket::OnTcp("::1", 0);
    EXPECT_EQ(0, Connect(sockets.at(0).Address()));
}

TEST(ListeningTcpSocketTest, IpV4AndIpV6MayHaveTheSamePort) {
    if (!Tests::HasIpV6()) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
    const auto ipV6 = ListeningSocket::OnTcp("::", 0);
    const unsigned short port = ipV6.at(0).Address().Port();
    EXPECT_EQ("listens", TcpError("0.0.0.0", port));
}

TEST(ListeningTcpSocketTest, NoNameListensOnEveryAddress) {
    const auto sockets = ListeningSocket::OnTcp("", 0);
    EXPECT_EQ(Tests::HasIpV6() ? 2U : 1U, sockets.size());
    for (const ListeningSocket& socket : sockets) {
        EXPECT_EQ(0, Connect(socket.Address())) << socket.Address().Text();
    }
}

TEST(ListeningTcpSocketTest, TheSocketIsClosedOnExecAndDoesNotBlock) {
    const auto sockets = ListeningSocket::OnTcp("127.0.0.1", 0);
    const int fd = sockets.at(0).Get();
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    EXPECT_EQ(O_NONBLOCK, fcntl(fd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(1, OptionOf(fd, SOL_SOCKET, SO_ACCEPTCONN));
}

TEST(ListeningTcpSocketTest, ManyConnectionsMayWait) {
    const auto sockets = ListeningSocket::OnTcp("127.0.0.1", 0);
    int highest = 0;
    std::ifstream("/proc/sys/net/core/somaxconn") >> highest;
    tcp_info info{};
    socklen_t size = sizeof(info);
    ASSERT_EQ(0, getsockopt(sockets.at(0).Get(), IPPROTO_TCP, TCP_INFO, &info, &size));
    // Of a listening socket this is the length of its queue.
    EXPECT_EQ(std::min(4096, highest), static_cast<int>(info.tcpi_sacked));
}

TEST(ListeningTcpSocketTest, ATakenPortIsReported) {
    const Tests::PlainTcpListener other("127.0.0.1");
    EXPECT_EQ("Could not listen on 127.0.0.1 port " + std::to_string(other.Port()) +
                  ": Address already in use",
              TcpError("127.0.0.1", other.Port()));
}

TEST(ListeningTcpSocketTest, AnAddressOfAnotherMachineIsReported) {
    EXPECT_EQ("Could not listen on 198.51.100.7 port 4711: Cannot assign requested address",
              TcpError("198.51.100.7", 4711));
}

TEST(ListeningTcpSocketTest, AnUnknownNameIsReported) {
    EXPECT_EQ("Could not listen on no such name port 4711: Name or service not known",
              TcpError("no such name", 4711));
}

TEST(ListeningTcpSocketTest, WithoutAnyDescriptorLeftTheReasonIsTold) {
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    ASSERT_TRUE(Tests::SetSoftLimit(RLIMIT_NOFILE, 0));
    const std::string error = TcpError("", 0);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ("Could not listen on any address port 0: Too many open files", error);
}

class ListeningUnixSocketTest : public testing::Test {
  protected:
    static std::string ErrorOn(const std::string& path, unsigned int mode = 0660) {
        try {
            ListeningSocket::OnUnix(path, mode);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "listens";
    }

    // Leaves a socket file behind as a server does that was killed.
    void LeaveStaleFile() const {
        const OwnedDescriptor server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const SocketAddress address = SocketAddress::OfUnixPath(path);
        ASSERT_EQ(0, bind(server.Get(), address.Get(), address.Size()));
        ASSERT_EQ(0, listen(server.Get(), 1));
    }
    unsigned int ModeOfFile() const {
        struct stat file {};
        return stat(path.c_str(), &file) == 0 ? file.st_mode & 07777U : 0;
    }

    const Tests::TemporaryFolder folder;
    const std::string path = folder.File("s");
    const std::string where = "Could not listen on " + path + ": ";
};

TEST_F(ListeningUnixSocketTest, ItAnswersOnItsPath) {
    const ListeningSocket socket = ListeningSocket::OnUnix(path, 0660);
    EXPECT_EQ(path, socket.Address().Text());
    EXPECT_EQ(0, Connect(socket.Address()));
}

TEST_F(ListeningUnixSocketTest, TheFileIsRemovedAtTheEnd) {
    {
        const ListeningSocket socket = ListeningSocket::OnUnix(path, 0660);
        EXPECT_TRUE(fs::exists(path));
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ListeningUnixSocketTest, MovingASocketKeepsItsFile) {
    std::optional<ListeningSocket> first(ListeningSocket::OnUnix(path, 0660));
    ListeningSocket second = ListeningSocket::OnUnix(folder.File("t"), 0660);
    second = std::move(*first);
    first.reset();
    EXPECT_EQ(0, Connect(SocketAddress::OfUnixPath(path)));
    EXPECT_FALSE(fs::exists(folder.File("t")));
}

TEST_F(ListeningUnixSocketTest, TheFileHasTheGivenModeWhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
        const mode_t before = umask(mask);
        const ListeningSocket socket = ListeningSocket::OnUnix(path, 0660);
        umask(before);
        EXPECT_EQ(0660U, ModeOfFile()) << mask;
    }
}

TEST_F(ListeningUnixSocketTest, AModeOverOctal777IsRefused) {
    EXPECT_EQ(where + "the access mode 512 is over 511 (octal 777)", ErrorOn(path, 01000));
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ListeningUnixSocketTest, AStaleFileIsReplaced) {
    LeaveStaleFile();
    EXPECT_EQ(ECONNREFUSED, Connect(SocketAddress::OfUnixPath(path)));
    const ListeningSocket socket = ListeningSocket::OnUnix(path, 0660);
    EXPECT_EQ(0, Connect(socket.Address()));
}

TEST_F(ListeningUnixSocketTest, ALivingServerIsLeftAlone) {
    const ListeningSocket living = ListeningSocket::OnUnix(path, 0660);
    EXPECT_EQ(where + "a server already answers there", ErrorOn(path));
    EXPECT_EQ(0, Connect(living.Address()));
}

TEST_F(ListeningUnixSocketTest, ALivingServerWithAFullQueueIsLeftAlone) {
    const OwnedDescriptor living(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const OwnedDescriptor waiting(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const SocketAddress address = SocketAddress::OfUnixPath(path);
    ASSERT_EQ(0, bind(living.Get(), address.Get(), address.Size()));
    ASSERT_EQ(0, listen(living.Get(), 0));
    ASSERT_EQ(0, connect(waiting.Get(), address.Get(), address.Size()));
    EXPECT_EQ(where + "a server already answers there", ErrorOn(path));
}

TEST_F(ListeningUnixSocketTest, ASocketOfAnotherKindIsLeftAlone) {
    const OwnedDescriptor other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const SocketAddress address = SocketAddress::OfUnixPath(path);
    ASSERT_EQ(0, bind(other.Get(), address.Get(), address.Size()));
    EXPECT_EQ(where + "Protocol wrong type for socket", ErrorOn(path));
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(ListeningUnixSocketTest, AFileThatIsNoSocketIsLeftAlone) {
    std::ofstream(path) << "precious";
    EXPECT_EQ(where + "the file exists and is not a socket", ErrorOn(path));
    EXPECT_EQ(8U, fs::file_size(path));
}

TEST_F(ListeningUnixSocketTest, ALinkToNowhereIsLeftAlone) {
    fs::create_symlink(folder.File("nowhere"), path);
    EXPECT_EQ(where + "the file exists and is not a socket", ErrorOn(path));
    EXPECT_TRUE(fs::is_symlink(path));
}

TEST_F(ListeningUnixSocketTest, AMissingFolderIsReported) {
    const std::string missing = folder.File("missing/s");
    EXPECT_EQ("Could not listen on " + missing + ": No such file or directory", ErrorOn(missing));
}

TEST_F(ListeningUnixSocketTest, AFolderThatTakesNoFilesIsReported) {
    EXPECT_EQ("Could not listen on /proc/s: No such file or directory", ErrorOn("/proc/s"));
}

TEST_F(ListeningUnixSocketTest, AFileInTheRootFolderIsLeftAlone) {
    EXPECT_EQ("Could not listen on /proc: the file exists and is not a socket", ErrorOn("/proc"));
}

TEST_F(ListeningUnixSocketTest, AFileThatSomebodyRemovedIsNotMissed) {
    std::optional<ListeningSocket> socket(ListeningSocket::OnUnix(path, 0660));
    fs::remove(path);
    socket.reset();
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ListeningUnixSocketTest, AFileOfAnotherFileSystemInItsPlaceIsNotTouched) {
    constexpr int notAllowed = 77;
    Tests::ChildProcess child([&](int) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return notAllowed;
        }
        std::optional<ListeningSocket> socket(ListeningSocket::OnUnix(path, 0660));
        if (mount("/proc/version", path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            return notAllowed;
        }
        socket.reset();
        return fs::is_regular_file(path) ? 0 : 1;
    });
    const int result = child.Wait();
    if (result == notAllowed) {
        GTEST_SKIP() << "No right to put another file system there";
    }
    EXPECT_EQ(0, result);
}

TEST_F(ListeningUnixSocketTest, AnotherServersFileOfTheSameNameIsNotRemoved) {
    std::optional<ListeningSocket> first(ListeningSocket::OnUnix(path, 0660));
    fs::rename(path, folder.File("moved away"));
    const ListeningSocket second = ListeningSocket::OnUnix(path, 0660);
    first.reset();
    EXPECT_EQ(0, Connect(second.Address()));
}

TEST_F(ListeningUnixSocketTest, TheFileIsFoundAgainFromAnotherWorkingFolder) {
    const fs::path before = fs::current_path();
    fs::current_path(folder.Path());
    std::optional<ListeningSocket> socket(ListeningSocket::OnUnix("s", 0660));
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(path));
    socket.reset();
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ListeningUnixSocketTest, AFolderThatStaysLockedIsReported) {
    const OwnedDescriptor other(open(folder.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(0, flock(other.Get(), LOCK_EX));
    EXPECT_EQ(where + "the folder is locked by another program", ErrorOn(path));
}

TEST_F(ListeningUnixSocketTest, AFailedListenLeavesNoFile) {
    const OwnedDescriptor other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    try {
        const UnixSocketFile file(other.Get(), path, 0660, 1);
        FAIL() << "a datagram socket listens";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(where + "Operation not supported", error.what());
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ListeningUnixSocketTest, AFolderThatMayOnlyBePassedAndWrittenServes) {
    constexpr int notAllowed = 77;
    Tests::ChildProcess child([&](int) {
        constexpr uid_t nobody = 65534;
        // A plain user from here on; the folder is given to it without the right to read.
        if (chown(folder.Path().c_str(), nobody, nobody) != 0 ||
            chmod(folder.Path().c_str(), 0300) != 0 || setresuid(nobody, nobody, 0) != 0) {
            return notAllowed;
        }
        LeaveStaleFile();
        int result = 1;
        {
            const ListeningSocket socket = ListeningSocket::OnUnix(path, 0660);
            result = Connect(socket.Address());
        }
        const bool removed = access(path.c_str(), F_OK) != 0;
        return setresuid(0, 0, 0) == 0 && removed ? result : 2;
    });
    const int result = child.Wait();
    if (result == notAllowed) {
        GTEST_SKIP() << "No right to become another user";
    }
    EXPECT_EQ(0, result);
}

TEST_F(ListeningUnixSocketTest, OfManyServersThatStartOnAStaleFileOneWins) {
    LeaveStaleFile();
    std::vector<std::unique_ptr<Tests::ChildProcess>> servers;
    constexpr std::size_t count = 8;
    servers.reserve(count);
    for (std::size_t server = 0; server < count; ++server) {
        servers.push_back(std::make_unique<Tests::ChildProcess>([&](int channel) {
            Tests::ChildProcess::Hear(channel);
            try {
                const ListeningSocket socket = ListeningSocket::OnUnix(path, 0660);
                // Keeps it until every server has tried.
                Tests::ChildProcess::Say(channel);
                Tests::ChildProcess::Hear(channel);
                return Connect(socket.Address());
            } catch (const std::runtime_error& error) {
                Tests::ChildProcess::Say(channel);
                return error.what() == where + "a server already answers there" ? 50 : 51;
            }
        }));
    }
    for (const auto& server : servers) {
        server->Say();
    }
    for (const auto& server : servers) {
        EXPECT_TRUE(server->Hear());
    }
    int winners = 0;
    for (const auto& server : servers) {
        server->Say();
        const int result = server->Wait();
        winners += result == 0 ? 1 : 0;
        EXPECT_TRUE(result == 0 || result == 50) << result;
    }
    EXPECT_EQ(1, winners);
}

TEST_F(ListeningUnixSocketTest, WithoutAnyDescriptorLeftTheReasonIsTold) {
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    ASSERT_TRUE(Tests::SetSoftLimit(RLIMIT_NOFILE, 0));
    const std::string error = ErrorOn(path);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ(where + "Too many open files", error);
}

// What is said of a descriptor that nobody listens on; it is closed then.
std::string DescriptorError(int fd) {
    try {
        ListeningSocket::OnDescriptor(fd);
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(-1, fcntl(fd, F_GETFD));
        const std::string text = error.what();
        const std::string begin = "Could not listen on descriptor " + std::to_string(fd) + ": ";
        return text.starts_with(begin) ? text.substr(begin.size()) : text;
    }
    return "listens";
}

TEST(ListeningDescriptorTest, ATcpSocketThatListensIsTakenOver) {
    const Tests::PlainTcpListener passed("127.0.0.1");
    const int fd = fcntl(passed.Get(), F_DUPFD, 0);
    const auto socket = ListeningSocket::OnDescriptor(fd);
    EXPECT_EQ("127.0.0.1:" + std::to_string(passed.Port()), socket.Address().Text());
    EXPECT_EQ(FD_CLOEXEC, fcntl(socket.Get(), F_GETFD));
    EXPECT_NE(0, fcntl(socket.Get(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(0, Connect(socket.Address()));
}

TEST(ListeningDescriptorTest, AnIpV6SocketIsTakenOver) {
    if (!Tests::HasIpV6()) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
    const Tests::PlainTcpListener passed("::1");
    const auto socket = ListeningSocket::OnDescriptor(fcntl(passed.Get(), F_DUPFD, 0));
    EXPECT_EQ("[::1]:" + std::to_string(passed.Port()), socket.Address().Text());
    EXPECT_EQ(0, Connect(socket.Address()));
}

TEST(ListeningDescriptorTest, AUnixSocketIsTakenOverAndItsFileStays) {
    const Tests::TemporaryFolder folder;
    const SocketAddress address = SocketAddress::OfUnixPath(folder.File("s"));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(fd, address.Get(), address.Size()));
    ASSERT_EQ(0, listen(fd, 1));
    {
        const auto passed = ListeningSocket::OnDescriptor(fd);
        EXPECT_EQ(folder.File("s"), passed.Address().Text());
        EXPECT_EQ(0, Connect(address));
    }
    EXPECT_TRUE(fs::exists(folder.File("s")));
    EXPECT_EQ(ECONNREFUSED, Connect(address));
}

TEST(ListeningDescriptorTest, WhatNobodyCanConnectToIsRefused) {
    const Tests::TemporaryFolder folder;
    EXPECT_EQ("Bad file descriptor", DescriptorError(1000));
    EXPECT_EQ("it is not a socket", DescriptorError(open(folder.Path().c_str(), O_RDONLY)));
    EXPECT_EQ("it is not a stream socket", DescriptorError(socket(AF_UNIX, SOCK_DGRAM, 0)));
    EXPECT_EQ("the socket does not listen", DescriptorError(socket(AF_INET, SOCK_STREAM, 0)));
    EXPECT_EQ("it is a socket of family " + std::to_string(AF_NETLINK) +
                  ", neither IPv4, IPv6 nor of the Unix domain",
              DescriptorError(socket(AF_NETLINK, SOCK_RAW, 0)));
}

}  // namespace
}  // namespace Brantel::Services
