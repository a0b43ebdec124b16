#include "SocketOptions.h"

#include "SocketAddress.h"
#include "SystemText.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <string>

namespace Brantel::Services {

namespace {

void SetOption(int fd, int level, int option, int value, const char* name) {
    if (setsockopt(fd, level, option, &value, sizeof(value)) != 0) {
        throw std::runtime_error(std::string("Could not set the socket option ") + name + ": " +
                                 SystemText(errno));
    }
}

void SetLocalSendBuffer(int fd) {
    SetOption(fd, SOL_SOCKET, SO_SNDBUF, localSendBufferSize, "SO_SNDBUF");
}

// A connection to one of the machine's own network addresses stays on the machine, too.
bool StaysOnThisMachine(int fd) {
    const SocketAddress peer = SocketAddress::OfPeer(fd);
    if (peer.IsLoopback()) {
        return true;
    }
    const std::string host = peer.Host();
    if (host.empty()) {
        return false;
    }
    return host == SocketAddress::OfSocket(fd).Host();
}

}  // namespace

void PrepareTcpSocket(int fd) {
    SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1, "TCP_NODELAY");
    SetOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1, "SO_KEEPALIVE");
    SetOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, keepAliveIdleSeconds, "TCP_KEEPIDLE");
    SetOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, keepAliveIntervalSeconds, "TCP_KEEPINTVL");
    SetOption(fd, IPPROTO_TCP, TCP_KEEPCNT, keepAliveProbes, "TCP_KEEPCNT");
    SetOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, int{userTimeoutMilliseconds}, "TCP_USER_TIMEOUT");
    if (StaysOnThisMachine(fd)) {
        SetLocalSendBuffer(fd);
    }
}

void PrepareUnixSocket(int fd) {
    SetLocalSendBuffer(fd);
}

bool IsConnectedToItself(int fd) noexcept {
    const SocketAddress own = SocketAddress::OfSocket(fd);
    return own.Port() != 0 && own == SocketAddress::OfPeer(fd);
}

}  // namespace Brantel::Services
