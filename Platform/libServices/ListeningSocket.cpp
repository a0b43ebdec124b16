#include "ListeningSocket.h"

#include "SystemText.h"
#include "UnixSocketFile.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace Brantel::Services {

namespace {

constexpr int listeningFlags = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;

// Returns 0 and the socket, or the error number.
int ListenOn(const SocketAddress& address, OwnedDescriptor& result) {
    OwnedDescriptor socket(::socket(address.Family(), listeningFlags, 0));
    if (!socket.IsOpen()) {
        return errno;
    }
    const int fd = socket.Get();
    const int on = 1;
    // A server that is started again must not wait until the connections before it are forgotten;
    // and IPv6 leaves IPv4 to a socket of its own, so that both may have the same port.
    const bool done = setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0 &&
                      (address.Family() != AF_INET6 ||
                       setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on)) == 0) &&
                      bind(fd, address.Get(), address.Size()) == 0 &&
                      listen(fd, ListeningSocket::backlog) == 0;
    const int error = done ? 0 : errno;
    result = std::move(socket);
    return error;
}

bool IsNotOfThisMachine(int error) {
    return error == EADDRNOTAVAIL || error == EAFNOSUPPORT;
}

}  // namespace

std::vector<ListeningSocket> ListeningSocket::OnTcp(const std::string& host, unsigned short port) {
    std::string where = "Could not listen on ";
    where += host.empty() ? "any address" : host.c_str();
    where += " port " + std::to_string(port) + ": ";
    std::vector<SocketAddress> addresses;
    try {
        addresses = SocketAddress::Resolve(host, port, true);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(where + error.what());
    }
    std::vector<ListeningSocket> sockets;
    int leftOut = 0;
    for (const SocketAddress& address : addresses) {
        OwnedDescriptor socket;
        const int error = ListenOn(address, socket);
        if (error == 0) {
            const SocketAddress bound = SocketAddress::OfSocket(socket.Get());
            sockets.push_back(ListeningSocket(std::move(socket), bound, nullptr));
        } else if (IsNotOfThisMachine(error)) {
            leftOut = error;
        } else {
            throw std::runtime_error(where + SystemText(error));
        }
    }
    if (sockets.empty()) {
        throw std::runtime_error(where + SystemText(leftOut));
    }
    return sockets;
}

ListeningSocket ListeningSocket::OnUnix(const std::string& path, unsigned int mode) {
    const SocketAddress address = SocketAddress::OfUnixPath(path);
    OwnedDescriptor socket(::socket(AF_UNIX, listeningFlags, 0));
    if (!socket.IsOpen()) {
        throw std::runtime_error("Could not listen on " + path + ": " + SystemText(errno));
    }
    auto file = std::make_unique<UnixSocketFile>(socket.Get(), path, mode, backlog);
    return ListeningSocket(std::move(socket), address, std::move(file));
}

ListeningSocket::ListeningSocket(OwnedDescriptor socket, const SocketAddress& address,
                                 std::unique_ptr<UnixSocketFile> file)
    : socket(std::move(socket)), address(address), file(std::move(file)) {}

ListeningSocket::ListeningSocket(ListeningSocket&&) noexcept = default;
ListeningSocket& ListeningSocket::operator=(ListeningSocket&&) noexcept = default;
ListeningSocket::~ListeningSocket() = default;

}  // namespace Brantel::Services
