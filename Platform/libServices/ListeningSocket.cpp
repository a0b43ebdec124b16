#include "ListeningSocket.h"

#include "SystemText.h"
#include "UnixSocketFile.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

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

// Of a socket; every socket has the options that are asked for here.
int IntegerOption(int fd, int option) {
    int value = -1;
    socklen_t size = sizeof(value);
    getsockopt(fd, SOL_SOCKET, option, &value, &size);
    return value;
}

// Why nobody can connect to the descriptor; empty: somebody can.
std::string WhyNotListening(int fd) {
    struct stat file {};
    if (fstat(fd, &file) != 0) {
        return SystemText(errno);
    }
    if (!S_ISSOCK(file.st_mode)) {
        return "it is not a socket";
    }
    const int domain = IntegerOption(fd, SO_DOMAIN);
    if (domain != AF_UNIX && domain != AF_INET && domain != AF_INET6) {
        return "it is a socket of family " + std::to_string(domain) +
               ", neither IPv4, IPv6 nor of the Unix domain";
    }
    if (IntegerOption(fd, SO_TYPE) != SOCK_STREAM) {
        return "it is not a stream socket";
    }
    return IntegerOption(fd, SO_ACCEPTCONN) == 1 ? "" : "the socket does not listen";
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

ListeningSocket ListeningSocket::OnDescriptor(int fd) {
    OwnedDescriptor socket(fd);
    const std::string reason = WhyNotListening(fd);
    if (!reason.empty()) {
        throw std::runtime_error("Could not listen on descriptor " + std::to_string(fd) + ": " +
                                 reason);
    }
    // Neither fails on a socket.
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    const SocketAddress address = SocketAddress::OfSocket(fd);
    return ListeningSocket(std::move(socket), address, nullptr);
}

ListeningSocket::ListeningSocket(OwnedDescriptor socket, const SocketAddress& address,
                                 std::unique_ptr<UnixSocketFile> file)
    : socket(std::move(socket)), address(address), file(std::move(file)) {}

ListeningSocket::ListeningSocket(ListeningSocket&&) noexcept = default;
ListeningSocket& ListeningSocket::operator=(ListeningSocket&&) noexcept = default;
ListeningSocket::~ListeningSocket() = default;

}  // namespace Brantel::Services
