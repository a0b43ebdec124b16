#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

namespace Brantel::Services {

// The address of a stream socket: IPv4, IPv6 or a Unix-domain path. A value.
class SocketAddress {
  public:
    // The longest path that the system's address structure holds besides its final zero byte.
    static constexpr std::size_t highestPathSize = 107;

    // No address: family AF_UNSPEC.
    SocketAddress() noexcept = default;
    SocketAddress(const sockaddr* address, socklen_t size) noexcept;

    // Throws std::runtime_error when the path is empty, longer than highestPathSize bytes or holds
    // a zero byte.
    static SocketAddress OfUnixPath(const std::string& path);

    // What the name stands for, in the system's order of preference, each address once. A numeric
    // address is taken as it is. With `toListen` an empty name stands for every address of this
    // machine, IPv4 and IPv6. Waits for the name service as long as it takes. Throws
    // std::runtime_error with what the name service said.
    static std::vector<SocketAddress> Resolve(const std::string& host, unsigned short port,
                                              bool toListen);

    // The two ends of a socket; no address when the system knows none.
    static SocketAddress OfSocket(int fd) noexcept;
    static SocketAddress OfPeer(int fd) noexcept;

    const sockaddr* Get() const noexcept;
    socklen_t Size() const noexcept { return size; }
    int Family() const noexcept { return storage.ss_family; }

    // True when the traffic with this address never leaves the machine: 127.0.0.0/8, ::1.
    bool IsLoopback() const noexcept;

    // IPv4 of either form: "192.0.2.7", also for an IPv4-mapped IPv6 address. IPv6: "fe80::1%eth0".
    // Empty for other families.
    std::string Host() const;
    // "192.0.2.7" for either form of an IPv4 address; otherwise empty.
    std::string IpV4() const;
    // 0 for other families than IPv4 and IPv6.
    unsigned short Port() const noexcept;
    // "192.0.2.7:4711", "[::1]:4711", or the path.
    std::string Text() const;

    bool operator==(const SocketAddress& other) const noexcept;

  private:
    bool IsMappedIpV4() const noexcept;

    sockaddr_storage storage{};
    socklen_t size = 0;
};

}  // namespace Brantel::Services
