#include "SocketAddress.h"

#include "SystemText.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Brantel::Services {

static_assert(sizeof(sockaddr_un::sun_path) == SocketAddress::highestPathSize + 1);

namespace {

// The system hands out addresses through a common head; reading them through a copy of the right
// type leaves no question of aliasing.
template <typename Address>
Address As(const sockaddr_storage& storage) noexcept {
    Address result{};
    std::memcpy(&result, &storage, sizeof(result));
    return result;
}

std::string Numeric(int family, const void* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, address, text.data(), text.size());
    return text.data();
}

std::string ResolveError(int result, int systemError) {
    if (result == EAI_SYSTEM) {
        return SystemText(systemError);
    }
    return gai_strerror(result);
}

}  // namespace

SocketAddress::SocketAddress(const sockaddr* address, socklen_t addressSize) noexcept
    : size(std::min(addressSize, static_cast<socklen_t>(sizeof(storage)))) {
    std::memcpy(&storage, address, size);
}

SocketAddress SocketAddress::OfUnixPath(const std::string& path) {
    if (path.empty()) {
        throw std::runtime_error("The path of a Unix-domain socket is empty");
    }
    if (path.find('\0') != std::string::npos) {
        throw std::runtime_error("The path of a Unix-domain socket holds a zero byte: " +
                                 std::string(path.c_str()));
    }
    if (path.size() > highestPathSize) {
        throw std::runtime_error("The path of a Unix-domain socket has " +
                                 std::to_string(path.size()) + " bytes, over the limit of " +
                                 std::to_string(highestPathSize) + ": " + path);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    SocketAddress result;
    std::memcpy(&result.storage, &address, sizeof(address));
    result.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return result;
}

std::vector<SocketAddress> SocketAddress::Resolve(const std::string& host, unsigned short port,
                                                  bool toListen) {
    if (host.find('\0') != std::string::npos) {
        throw std::runtime_error("The name holds a zero byte");
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | (toListen ? AI_PASSIVE : 0);
    addrinfo* list = nullptr;
    const char* const name = toListen && host.empty() ? nullptr : host.c_str();
    const int result = getaddrinfo(name, std::to_string(port).c_str(), &hints, &list);
    if (result != 0) {
        throw std::runtime_error(ResolveError(result, errno));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
    std::vector<SocketAddress> addresses;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        const SocketAddress address(entry->ai_addr, entry->ai_addrlen);
        if (std::find(addresses.begin(), addresses.end(), address) == addresses.end()) {
            addresses.push_back(address);
        }
    }
    return addresses;
}

SocketAddress SocketAddress::OfSocket(int fd) noexcept {
    SocketAddress result;
    socklen_t size = sizeof(result.storage);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&result.storage), &size) == 0) {
        result.size = size;
    }
    return result;
}

SocketAddress SocketAddress::OfPeer(int fd) noexcept {
    SocketAddress result;
    socklen_t size = sizeof(result.storage);
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&result.storage), &size) == 0) {
        result.size = size;
    }
    return result;
}

const sockaddr* SocketAddress::Get() const noexcept {
    return reinterpret_cast<const sockaddr*>(&storage);
}

bool SocketAddress::IsMappedIpV4() const noexcept {
    const auto address = As<sockaddr_in6>(storage);
    return Family() == AF_INET6 && IN6_IS_ADDR_V4MAPPED(&address.sin6_addr);
}

bool SocketAddress::IsLoopback() const noexcept {
    constexpr unsigned char loopbackNet = 127;
    const auto ipV6 = As<sockaddr_in6>(storage);
    if (IsMappedIpV4()) {
        return ipV6.sin6_addr.s6_addr[12] == loopbackNet;
    }
    if (Family() == AF_INET6) {
        return IN6_IS_ADDR_LOOPBACK(&ipV6.sin6_addr);
    }
    return Family() == AF_INET &&
           (ntohl(As<sockaddr_in>(storage).sin_addr.s_addr) >> 24U) == loopbackNet;
}

std::string SocketAddress::IpV4() const {
    if (Family() == AF_INET) {
        const auto address = As<sockaddr_in>(storage);
        return Numeric(AF_INET, &address.sin_addr);
    }
    if (IsMappedIpV4()) {
        const auto address = As<sockaddr_in6>(storage);
        return Numeric(AF_INET, &address.sin6_addr.s6_addr[12]);
    }
    return {};
}

std::string SocketAddress::Host() const {
    if (Family() != AF_INET6 || IsMappedIpV4()) {
        return IpV4();
    }
    // Adds the interface that a link-local address is valid on.
    std::array<char, NI_MAXHOST> text{};
    getnameinfo(Get(), size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
    return text.data();
}

unsigned short SocketAddress::Port() const noexcept {
    if (Family() == AF_INET) {
        return ntohs(As<sockaddr_in>(storage).sin_port);
    }
    return Family() == AF_INET6 ? ntohs(As<sockaddr_in6>(storage).sin6_port) : 0;
}

std::string SocketAddress::Text() const {
    if (Family() == AF_UNIX) {
        return As<sockaddr_un>(storage).sun_path;
    }
    std::string host = Host();
    if (host.find(':') != std::string::npos) {
        host = "[" + host + "]";
    }
    return host + ":" + std::to_string(Port());
}

bool SocketAddress::operator==(const SocketAddress& other) const noexcept {
    return size == other.size && std::memcmp(&storage, &other.storage, size) == 0;
}

}  // namespace Brantel::Services
