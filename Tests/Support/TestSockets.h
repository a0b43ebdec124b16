#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

namespace Brantel::Tests {

// A plain socket that listens on a free TCP port of one address, without anything of ours.
class PlainTcpListener {
  public:
    // "127.0.0.1" or "::1"; `queue` connections more than one may wait.
    explicit PlainTcpListener(const std::string& host, int queue = 16) {
        const bool isIpV6 = host.find(':') != std::string::npos;
        fd = socket(isIpV6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in ipV4{};
        ipV4.sin_family = AF_INET;
        sockaddr_in6 ipV6{};
        ipV6.sin6_family = AF_INET6;
        inet_pton(isIpV6 ? AF_INET6 : AF_INET, host.c_str(),
                  isIpV6 ? static_cast<void*>(&ipV6.sin6_addr) : &ipV4.sin_addr);
        size = isIpV6 ? sizeof(ipV6) : sizeof(ipV4);
        std::memcpy(&address, isIpV6 ? static_cast<void*>(&ipV6) : &ipV4, size);
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            listen(fd, queue) != 0 ||
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            throw std::system_error(errno, std::generic_category(), "listen on " + host);
        }
    }
    PlainTcpListener(const PlainTcpListener&) = delete;
    PlainTcpListener& operator=(const PlainTcpListener&) = delete;
    ~PlainTcpListener() { Close(); }

    // The port is free, and refuses, from now on.
    void Close() {
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }

    int Get() const { return fd; }
    unsigned short Port() const {
        sockaddr_in head{};  // the port lies at the same place in both kinds
        std::memcpy(&head, &address, sizeof(head));
        return ntohs(head.sin_port);
    }
    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&address); }
    socklen_t AddressSize() const { return size; }

    // Waits for one connection; its owner closes it.
    int Accept() const { return accept4(fd, nullptr, nullptr, SOCK_CLOEXEC); }

  private:
    int fd = -1;
    sockaddr_storage address{};
    socklen_t size = 0;
};

// A plain socket on which a listener's address and port get no answer any more: the one connection
// that its queue holds is waiting there.
class FullTcpListener : public PlainTcpListener {
  public:
    explicit FullTcpListener(const std::string& host) : PlainTcpListener(host, 0) {
        waiting = socket(Address()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        pollfd queue{Get(), POLLIN, 0};
        if (waiting < 0 || connect(waiting, Address(), AddressSize()) != 0 ||
            poll(&queue, 1, -1) != 1) {
            throw std::system_error(errno, std::generic_category(), "fill the queue of " + host);
        }
    }
    FullTcpListener(const FullTcpListener&) = delete;
    FullTcpListener& operator=(const FullTcpListener&) = delete;
    ~FullTcpListener() { close(waiting); }

  private:
    int waiting = -1;
};

inline bool HasIpV6() {
    try {
        const PlainTcpListener probe("::1");
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

// The value of an integer option; -1 on an error.
inline int OptionOf(int fd, int level, int option) {
    int value = -1;
    socklen_t size = sizeof(value);
    return getsockopt(fd, level, option, &value, &size) == 0 ? value : -1;
}

}  // namespace Brantel::Tests
