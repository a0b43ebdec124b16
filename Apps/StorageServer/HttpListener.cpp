#include "HttpListener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace Brantel::Server {

namespace {

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

[[noreturn]] void Fail(const ListenAddress& address, const std::string& reason) {
    throw std::runtime_error("Could not listen on " +
                             (address.host.empty() ? "any address" : address.host) + " port " +
                             std::to_string(address.port) + " for HTTP: " + reason +
                             "; choose another address by --http, or off");
}

Addresses Resolve(const ListenAddress& address) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(address.host.empty() ? nullptr : address.host.c_str(),
                                  std::to_string(address.port).c_str(), &wanted, &found);
    if (error != 0) {
        Fail(address,
             error == EAI_SYSTEM ? std::generic_category().message(errno) : gai_strerror(error));
    }
    return {found, &freeaddrinfo};
}

// The socket, or -1 with errno.
int Listen(const addrinfo& address) {
    constexpr int backlog = 64;
    constexpr int on = 1;
    const int made = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0) {
        return -1;
    }
    setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(made, address.ai_addr, address.ai_addrlen) == 0 && listen(made, backlog) == 0) {
        return made;
    }
    const int error = errno;
    close(made);
    errno = error;
    return -1;
}

}  // namespace

HttpListener::HttpListener(const ListenAddress& address) {
    const Addresses found = Resolve(address);
    for (const addrinfo* one = found.get(); one != nullptr && socket < 0; one = one->ai_next) {
        socket = Listen(*one);
    }
    if (socket < 0) {
        Fail(address, std::generic_category().message(errno));
    }
}

HttpListener::~HttpListener() {
    close(socket);
}

std::string HttpListener::GetText() const {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    // The system's own form of an address: of the size that it says.
    auto* const generic = static_cast<sockaddr*>(static_cast<void*>(&address));
    if (getsockname(socket, generic, &size) != 0 ||
        getnameinfo(generic, size, host.data(), host.size(), port.data(), port.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "unknown";
    }
    const std::string name = host.data();
    return (address.ss_family == AF_INET6 ? "[" + name + "]" : name) + ":" + port.data();
}

}  // namespace Brantel::Server
