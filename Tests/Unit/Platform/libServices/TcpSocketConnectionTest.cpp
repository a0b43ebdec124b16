#include "ConnectionProbe.h"
#include "Support/ChildProcess.h"
#include "Support/ProcessState.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"
#include "Support/Waiting.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/OwnedDescriptor.h>
#include <libServices/SocketAddress.h>
#include <libServices/SocketDisconnected.h>
#include <libServices/TcpSocketConnection.h>

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace Brantel::Services {
namespace {

using google::protobuf::StringValue;
using Tests::FullTcpListener;
using Tests::OptionOf;
using Tests::PlainTcpListener;
using Connection = TcpSocketConnection<FileDescriptorServiceConnection>;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned int ampleTimeout = 60'000;

std::string ConnectError(const std::string& host, unsigned short port, unsigned int timeout) {
    try {
        const Connection connection(host, port, timeout);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "connected";
}

std::string Where(const std::string& host, unsigned short port) {
    return "Could not connect to " + host + " port " + std::to_string(port) + ": ";
}

StringValue Text(const std::string& text) {
    StringValue message;
    message.set_value(text);
    return message;
}

// Both kinds of address; IPv6 is skipped on a machine without it.
class TcpSocketConnectionTest : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        if (std::string(GetParam()) == "::1" && !Tests::HasIpV6()) {
            GTEST_SKIP() << "This machine has no IPv6";
        }
    }
    static std::string Host() { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(IpV4AndIpV6, TcpSocketConnectionTest, testing::Values("127.0.0.1", "::1"),
                         [](const auto& parameter) {
                             return std::string(parameter.param) == "::1" ? "IpV6" : "IpV4";
                         });

TEST_P(TcpSocketConnectionTest, MessagesTravelBothWays) {
    const PlainTcpListener listener(Host());
    Connection client(Host(), listener.Port(), ampleTimeout);
    FileDescriptorServiceConnection server(listener.Accept());
    StringValue received;
    ASSERT_TRUE(client.Send(Text("there")));
    ASSERT_TRUE(server.Receive(received));
    EXPECT_EQ("there", received.value());
    ASSERT_TRUE(server.Send(Text("and back")));
    ASSERT_TRUE(client.Receive(received));
    EXPECT_EQ("and back", received.value());
}

TEST_P(TcpSocketConnectionTest, WithoutATimeoutItConnectsToo) {
    const PlainTcpListener listener(Host());
    const Connection client(Host(), listener.Port(), 0);
    EXPECT_FALSE(client.PeerGone());
}

TEST_P(TcpSocketConnectionTest, ARefusedConnectNamesHostPortAndReason) {
    PlainTcpListener listener(Host());
    listener.Close();
    EXPECT_EQ(Where(Host(), listener.Port()) + "Connection refused",
              ConnectError(Host(), listener.Port(), ampleTimeout));
    EXPECT_EQ(Where(Host(), listener.Port()) + "Connection refused",
              ConnectError(Host(), listener.Port(), 0));
}

TEST_P(TcpSocketConnectionTest, AServerThatDoesNotAnswerIsLeftAfterTheTimeout) {
    const FullTcpListener listener(Host());
    const auto start = Clock::now();
    EXPECT_EQ(Where(Host(), listener.Port()) + "Connection timed out (limit 200 ms)",
              ConnectError(Host(), listener.Port(), 200));
    EXPECT_GE(Clock::now() - start, milliseconds(200));
    EXPECT_LT(Clock::now() - start, Tests::patience);
}

TEST_P(TcpSocketConnectionTest, TheSocketIsPreparedForSmallCallsAndALocalPeer) {
    const PlainTcpListener listener(Host());
    const TcpSocketConnection<ConnectionProbe> client(Host(), listener.Port(), ampleTimeout);
    const int fd = ConnectionProbe::DescriptorOf(client);
    const OwnedDescriptor reference(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int wanted = 212992;
    ASSERT_EQ(0, setsockopt(reference.Get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted)));
    EXPECT_EQ(OptionOf(reference.Get(), SOL_SOCKET, SO_SNDBUF),
              OptionOf(fd, SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(1, OptionOf(fd, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(1, OptionOf(fd, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(24'000, OptionOf(fd, IPPROTO_TCP, TCP_USER_TIMEOUT));
}

TEST_P(TcpSocketConnectionTest, TheSocketIsBlockingAndClosedOnExec) {
    const PlainTcpListener listener(Host());
    const TcpSocketConnection<ConnectionProbe> client(Host(), listener.Port(), ampleTimeout);
    const int fd = ConnectionProbe::DescriptorOf(client);
    EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
}

TEST_P(TcpSocketConnectionTest, AResetByThePeerIsALostConnection) {
    const PlainTcpListener listener(Host());
    Connection client(Host(), listener.Port(), ampleTimeout);
    {
        const OwnedDescriptor server(listener.Accept());
        const linger reset{1, 0};
        ASSERT_EQ(0, setsockopt(server.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset)));
    }
    EXPECT_TRUE(Tests::Eventually([&] { return client.PeerGone(); }));
    StringValue received;
    EXPECT_THROW(client.Receive(received), SocketDisconnected);
}

TEST_P(TcpSocketConnectionTest, FurtherArgumentsReachTheBase) {
    const PlainTcpListener listener(Host());
    constexpr std::size_t limit = 1000;
    const Connection client(Host(), listener.Port(), ampleTimeout, limit);
    EXPECT_EQ(limit, client.MessageLimit());
}

TEST_P(TcpSocketConnectionTest, AFailedConnectLeavesNoDescriptor) {
    PlainTcpListener listener(Host());
    listener.Close();
    const std::size_t before = Tests::OpenDescriptors();
    ConnectError(Host(), listener.Port(), ampleTimeout);
    EXPECT_EQ(before, Tests::OpenDescriptors());
}

TEST(TcpSocketConnectionNameTest, AnUnknownNameIsReportedWithWhatTheNameServiceSaid) {
    EXPECT_EQ(Where("no such name", 4711) + "Name or service not known",
              ConnectError("no such name", 4711, ampleTimeout));
    EXPECT_EQ(Where("", 4711) + "Name or service not known", ConnectError("", 4711, ampleTimeout));
}

TEST(TcpSocketConnectionNameTest, ANameIsConnectedTo) {
    const PlainTcpListener listener("127.0.0.1");
    EXPECT_EQ("connected", ConnectError("localhost", listener.Port(), ampleTimeout));
}

TEST(TcpSocketConnectionNameTest, WithoutAnyDescriptorLeftTheReasonIsTold) {
    const PlainTcpListener listener("127.0.0.1");
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    ASSERT_TRUE(Tests::SetSoftLimit(RLIMIT_NOFILE, 0));
    const std::string error = ConnectError("127.0.0.1", listener.Port(), ampleTimeout);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ(Where("127.0.0.1", listener.Port()) + "Too many open files", error);
}

// Switches the machine's own network on (IFF_UP) or off (0), in a network of the process's own.
bool SwitchLoopback(short flags) {
    const OwnedDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback{};
    loopback.ifr_name[0] = 'l';
    loopback.ifr_name[1] = 'o';
    loopback.ifr_flags = flags;
    return ioctl(control.Get(), SIOCSIFFLAGS, &loopback) == 0;
}

// A network that goes down between two connected ends, as when a host loses its power: nothing says
// goodbye. The parameter: whether the connection is idle then or waits for an answer.
class VanishedHostTest : public testing::TestWithParam<bool> {
  protected:
    static constexpr int notAllowed = 77;

    // Sets the limits that every connection has to shorter ones.
    static void Hurry(int fd) {
        const std::pair<int, int> limits[] = {
            {TCP_KEEPIDLE, 1}, {TCP_KEEPINTVL, 1}, {TCP_KEEPCNT, 1}, {TCP_USER_TIMEOUT, 1000}};
        for (const auto& [option, value] : limits) {
            EXPECT_GT(OptionOf(fd, IPPROTO_TCP, option), value);
            EXPECT_EQ(0, setsockopt(fd, IPPROTO_TCP, option, &value, sizeof(value)));
        }
    }

    static int Run(bool idle) {
        if (unshare(CLONE_NEWNET) != 0 || !SwitchLoopback(IFF_UP)) {
            return notAllowed;
        }
        const PlainTcpListener listener("127.0.0.1");
        TcpSocketConnection<ConnectionProbe> client("127.0.0.1", listener.Port(), ampleTimeout);
        const OwnedDescriptor server(listener.Accept());
        Hurry(ConnectionProbe::DescriptorOf(client));
        EXPECT_TRUE(SwitchLoopback(0));
        if (!idle) {
            EXPECT_TRUE(client.Send(Text("nobody hears")));
        }
        StringValue received;
        EXPECT_THROW(client.Receive(received), SocketDisconnected);
        EXPECT_EQ(client.WhyLost().rfind("Connection lost: ", 0), 0U) << client.WhyLost();
        return HasFailure() ? 1 : 0;
    }
};

INSTANTIATE_TEST_SUITE_P(IdleAndBusy, VanishedHostTest, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Idle" : "Busy"; });

TEST_P(VanishedHostTest, IsNoticedAndIsALostConnection) {
    Tests::ChildProcess child([](int) { return Run(GetParam()); });
    const int result = child.Wait();
    if (result == notAllowed) {
        GTEST_SKIP() << "No right to give this test a network of its own";
    }
    EXPECT_EQ(0, result);
}

// In a network that has one local port, a connect to this port is given just this port as its own
// and meets itself.
TEST(TcpSocketConnectionToItselfTest, AConnectionToItselfCountsAsRefused) {
    constexpr int notAllowed = 77;
    Tests::ChildProcess child([](int) {
        if (unshare(CLONE_NEWNET) != 0 || !SwitchLoopback(IFF_UP)) {
            return notAllowed;
        }
        std::ofstream ports("/proc/sys/net/ipv4/ip_local_port_range");
        if (!(ports << "40000 40000" << std::flush)) {
            return notAllowed;
        }
        const std::string error = ConnectError("127.0.0.1", 40'000, ampleTimeout);
        EXPECT_EQ(Where("127.0.0.1", 40'000) + "Connection refused", error);
        return testing::Test::HasFailure() ? 1 : 0;
    });
    const int result = child.Wait();
    if (result == notAllowed) {
        GTEST_SKIP() << "No right to give this test a network of its own";
    }
    EXPECT_EQ(0, result);
}

// A name with several addresses, which only a hosts file of its own can promise. Runs in a child
// with a mount namespace, where that is allowed.
class SeveralAddressesTest : public testing::Test {
  protected:
    static constexpr int notAllowed = 77;

    // Gives the name "storage" two addresses, 127.0.0.2 and 127.0.0.3, and the name "twice" one
    // that is listed twice; returns the address of "storage" that the system prefers and the other.
    static std::pair<std::string, std::string> NameTwoAddresses(const std::string& folder) {
        const std::string hosts = folder + "/hosts";
        std::ofstream(hosts) << "127.0.0.2 storage\n127.0.0.3 storage\n"
                             << "127.0.0.4 twice\n127.0.0.4 twice\n";
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(hosts.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0) {
            return {};
        }
        const auto addresses = SocketAddress::Resolve("storage", 1, false);
        return {addresses.at(0).Host(), addresses.at(1).Host()};
    }

    // Runs the body in a child with the two addresses and expects that it returns 0.
    static void InChild(
        const std::function<int(const std::string& first, const std::string& second)>& body) {
        const Tests::TemporaryFolder folder;
        Tests::ChildProcess child([&](int) {
            const auto [first, second] = NameTwoAddresses(folder.Path());
            return first.empty() ? notAllowed : body(first, second);
        });
        const int result = child.Wait();
        if (result == notAllowed) {
            GTEST_SKIP() << "No right to give this test a hosts file of its own";
        }
        EXPECT_EQ(0, result);
    }
};

TEST_F(SeveralAddressesTest, TheNextAddressIsTriedAfterARefusal) {
    InChild([](const std::string&, const std::string& second) {
        const PlainTcpListener listener(second);
        const Connection client("storage", listener.Port(), ampleTimeout);
        return client.PeerGone() ? 1 : 0;
    });
}

TEST_F(SeveralAddressesTest, AnAddressThatDoesNotAnswerLeavesTimeForTheNext) {
    InChild([](const std::string& first, const std::string& second) {
        const FullTcpListener silent(first);
        const OwnedDescriptor other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(silent.Port());
        inet_pton(AF_INET, second.c_str(), &address.sin_addr);
        if (bind(other.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(other.Get(), 1) != 0) {
            return 1;
        }
        const Connection client("storage", silent.Port(), 1000);
        return client.PeerGone() ? 2 : 0;
    });
}

TEST_F(SeveralAddressesTest, AnAddressThatIsListedTwiceIsTriedOnce) {
    InChild([](const std::string&, const std::string&) {
        return SocketAddress::Resolve("twice", 1, false).size() == 1 ? 0 : 1;
    });
}

TEST_F(SeveralAddressesTest, EveryAddressThatFailedIsNamed) {
    InChild([](const std::string& first, const std::string& second) {
        const FullTcpListener silent(first);
        const std::string error = ConnectError("storage", silent.Port(), 200);
        const std::string expected = Where("storage", silent.Port()) + first +
                                     ": Connection timed out (limit 200 ms); " + second +
                                     ": Connection refused";
        EXPECT_EQ(expected, error);
        return error == expected ? 0 : 1;
    });
}

// Signals to a thread that is connecting or receiving, with a handler that lets system calls fail.
class InterruptedConnectionTest : public testing::Test {
  protected:
    InterruptedConnectionTest() {
        handled = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { ++handled; };
        sigaction(SIGUSR1, &action, &before);
    }
    ~InterruptedConnectionTest() override { sigaction(SIGUSR1, &before, nullptr); }

    // Interrupts the thread so many times while it sleeps in a system call.
    static bool Interrupt(std::thread& thread, const std::atomic<pid_t>& id, int times) {
        bool done = Tests::Eventually([&] { return id != 0; });
        for (int count = 0; done && count < times; ++count) {
            done = Tests::Eventually([&] { return Tests::IsAsleep(id); });
            const int seen = handled;
            pthread_kill(thread.native_handle(), SIGUSR1);
            done = done && Tests::Eventually([&] { return handled > seen; });
        }
        return done;
    }

    static inline std::atomic<int> handled{0};
    struct sigaction before {};
};

TEST_F(InterruptedConnectionTest, SignalsDoNotEndAConnect) {
    const FullTcpListener listener("127.0.0.1");
    std::atomic<pid_t> id{0};
    std::string result;
    std::thread thread([&] {
        id = gettid();
        result = ConnectError("127.0.0.1", listener.Port(), ampleTimeout);
    });
    EXPECT_TRUE(Interrupt(thread, id, 20));
    const OwnedDescriptor first(listener.Accept());
    const OwnedDescriptor second(listener.Accept());
    thread.join();
    EXPECT_EQ("connected", result);
}

TEST_F(InterruptedConnectionTest, SignalsDoNotMoveTheTimeout) {
    const FullTcpListener listener("127.0.0.1");
    std::atomic<pid_t> id{0};
    std::string result;
    Clock::time_point end;
    const auto start = Clock::now();
    std::thread thread([&] {
        id = gettid();
        result = ConnectError("127.0.0.1", listener.Port(), 500);
        end = Clock::now();
    });
    EXPECT_TRUE(Interrupt(thread, id, 5));
    thread.join();
    EXPECT_EQ(Where("127.0.0.1", listener.Port()) + "Connection timed out (limit 500 ms)", result);
    EXPECT_GE(end - start, milliseconds(500));
}

TEST_F(InterruptedConnectionTest, SignalsDoNotEndAReceive) {
    const PlainTcpListener listener("127.0.0.1");
    Connection client("127.0.0.1", listener.Port(), ampleTimeout);
    FileDescriptorServiceConnection server(listener.Accept());
    std::atomic<pid_t> id{0};
    StringValue received;
    std::thread thread([&] {
        id = gettid();
        client.Receive(received);
    });
    EXPECT_TRUE(Interrupt(thread, id, 20));
    server.Send(Text("after the signals"));
    thread.join();
    EXPECT_EQ("after the signals", received.value());
}

}  // namespace
}  // namespace Brantel::Services
