#include "Support/TestSockets.h"

#include <libServices/OwnedDescriptor.h>
#include <libServices/SocketAddress.h>
#include <libServices/SocketOptions.h>

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

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
    EXPECT_EQ(4, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_KEEPCNT));
    EXPECT_EQ(30'000, OptionOf(tcp.Get(), IPPROTO_TCP, TCP_USER_TIMEOUT));
}

TEST(SocketOptionsTest, ATcpSocketWithoutALocalPeerKeepsTheSystemsSendBuffer) {
    const OwnedDescriptor tcp(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int before = OptionOf(tcp.Get(), SOL_SOCKET, SO_SNDBUF);
    PrepareTcpSocket(tcp.Get());
    EXPECT_EQ(before, OptionOf(tcp.Get(), SOL_SOCKET, SO_SNDBUF));
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
