#include "Support/ChildProcess.h"
#include "Support/TestSockets.h"

#include <libServices/OwnedDescriptor.h>
#include <libServices/SocketAddress.h>
#include <libServices/SocketOptions.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace Brantel::Services {
namespace {

using Tests::OptionOf;
using Tests::PlainTcpListener;

std::string ErrorOf(void (*prepare)(int), int fd) {
    try {
        prepare(fd);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

TEST(SocketOptionsTest, ATcpSocketSendsAtOnceAndNoticesAVanishedPeer) {
    const OwnedDescriptor tcp(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    PrepareTcpSocket(tcp.Get());
    EXPECT_EQ(1, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(1, OptionOf(tcp.Get(), SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(10, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_KEEPIDLE));
    EXPECT_EQ(5, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_KEEPINTVL));
    EXPECT_EQ(3, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_KEEPCNT));
    EXPECT_EQ(24'000, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_USER_TIMEOUT));
}

TEST(SocketOptionsTest, ATcpSocketWithoutALocalPeerKeepsTheSystemsSendBuffer) {
    const OwnedDescriptor tcp(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int before = OptionOf(tcp.Get(), SOL_SOCKET, SO_SNDBUF);
    PrepareTcpSocket(tcp.Get());
    EXPECT_EQ(before, OptionOf(tcp.Get(), SOL_SOCKET, SO_SNDBUF));
}

// In a network of its own, whose only interface has two addresses beside that of the loopback.
class OwnAddressTest : public testing::Test {
  protected:
    static bool TakeAddresses() {
        if (unshare(CLONE_NEWNET) != 0) {
            return false;
        }
        const OwnedDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ifreq loopback{};
        std::strcpy(loopback.ifr_name, "lo");
        loopback.ifr_flags = IFF_UP;
        return ioctl(control.Get(), SIOCSIFFLAGS, &loopback) == 0 &&
               TakeAddress(control.Get(), "lo:1", "192.0.2.1") &&
               TakeAddress(control.Get(), "lo:2", "192.0.2.2");
    }
    static sockaddr_in AddressOf(const char* host, unsigned short port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        inet_pton(AF_INET, host, &address.sin_addr);
        return address;
    }
    // The send buffer of a prepared connection from 192.0.2.1, in bytes; 0 when there is none.
    static int SendBufferTo(const char* host) {
        const PlainTcpListener listener("0.0.0.0");
        const sockaddr_in own = AddressOf("192.0.2.1", 0);
        const sockaddr_in peer = AddressOf(host, listener.Port());
        const OwnedDescriptor tcp(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (bind(tcp.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0 ||
            connect(tcp.Get(), reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) != 0) {
            return 0;
        }
        PrepareTcpSocket(tcp.Get());
        return OptionOf(tcp.Get(), SOL_SOCKET, SO_SNDBUF);
    }

  private:
    static bool TakeAddress(int control, const char* name, const char* host) {
        ifreq alias{};
        std::strcpy(alias.ifr_name, name);
        const sockaddr_in address = AddressOf(host, 0);
        std::memcpy(&alias.ifr_addr, &address, sizeof(address));
        return ioctl(control, SIOCSIFADDR, &alias) == 0;
    }
};

TEST_F(OwnAddressTest, AConnectionToAnAddressOfThisMachineHasTheLargeSendBuffer) {
    constexpr int notAllowed = 77;
    Tests::ChildProcess child([](int) {
        if (!TakeAddresses()) {
            return notAllowed;
        }
        const OwnedDescriptor reference(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int wanted = 212992;
        setsockopt(reference.Get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted));
        const int large = OptionOf(reference.Get(), SOL_SOCKET, SO_SNDBUF);
        EXPECT_EQ(large, SendBufferTo("192.0.2.1"));
        EXPECT_NE(0, SendBufferTo("192.0.2.2"));
        EXPECT_NE(large, SendBufferTo("192.0.2.2"));
        return testing::Test::HasFailure() ? 1 : 0;
    });
    const int result = child.Wait();
    if (result == notAllowed) {
        GTEST_SKIP() << "No right to give this test a network of its own";
    }
    EXPECT_EQ(0, result);
}

TEST(SocketOptionsTest, AUnixSocketHasTheLargeSendBuffer) {
    const OwnedDescriptor local(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const OwnedDescriptor reference(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int wanted = 212992;
    ASSERT_EQ(0, setsockopt(reference.Get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted)));
    PrepareUnixSocket(local.Get());
    EXPECT_EQ(OptionOf(reference.Get(), SOL_SOCKET, SO_SNDBUF),
              OptionOf(local.Get(), SOL_SOCKET, SO_SNDBUF));
}

TEST(SocketOptionsTest, AnOptionThatCanNotBeSetIsNamed) {
    const OwnedDescriptor local(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ("Could not set the socket option TCP_NODELAY: Operation not supported",
              ErrorOf(&PrepareTcpSocket, local.Get()));
    EXPECT_EQ("Could not set the socket option SO_SNDBUF: Bad file descriptor",
              ErrorOf(&PrepareUnixSocket, -1));
}

TEST(SocketOptionsTest, ASocketThatIsConnectedToItselfIsRecognised) {
    PlainTcpListener free("127.0.0.1");
    const SocketAddress address(free.Address(), free.AddressSize());
    free.Close();
    const OwnedDescriptor tcp(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(0, bind(tcp.Get(), address.Get(), address.Size()));
    ASSERT_EQ(0, connect(tcp.Get(), address.Get(), address.Size()));
    EXPECT_TRUE(IsConnectedToItself(tcp.Get()));
}

TEST(SocketOptionsTest, AnOrdinaryConnectionIsNotConnectedToItself) {
    const PlainTcpListener listener("127.0.0.1");
    const OwnedDescriptor tcp(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_FALSE(IsConnectedToItself(tcp.Get()));
    ASSERT_EQ(0, connect(tcp.Get(), listener.Address(), listener.AddressSize()));
    EXPECT_FALSE(IsConnectedToItself(tcp.Get()));
}

}  // namespace
}  // namespace Brantel::Services
