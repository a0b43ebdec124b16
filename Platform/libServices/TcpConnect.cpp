#include "TcpConnect.h"

#include "OwnedDescriptor.h"
#include "SocketAddress.h"
#include "SocketOptions.h"
#include "SystemText.h"

#include <climits>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <stdexcept>

namespace Brantel::Services {

namespace {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;

// For poll: rounded up, so that the deadline has passed when the wait is over; -1 without a
// deadline.
int RemainingMilliseconds(const Deadline& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

// Returns 0 when the connection stands, or the error number.
int FinishConnect(int fd, const Deadline& deadline) {
    pollfd watched{fd, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&watched, 1, RemainingMilliseconds(deadline));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) {
        return ETIMEDOUT;
    }
    int error = 0;
    socklen_t size = sizeof(error);
    const bool known = ready > 0 && getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0;
    return known ? error : errno;
}

int SetBlocking(int fd) {
    return fcntl(fd, F_SETFL, 0) == 0 ? 0 : errno;
}

// Returns 0 and the connected socket, or the error number.
int ConnectTo(const SocketAddress& address, const Deadline& deadline, OwnedDescriptor& result) {
    OwnedDescriptor socket(
        ::socket(address.Family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.IsOpen()) {
        return errno;
    }
    int error = connect(socket.Get(), address.Get(), address.Size()) == 0 ? 0 : errno;
    if (error == EINPROGRESS || error == EINTR) {
        error = FinishConnect(socket.Get(), deadline);
    }
    if (error == 0) {
        error = IsConnectedToItself(socket.Get()) ? ECONNREFUSED : SetBlocking(socket.Get());
    }
    result = std::move(socket);
    return error;
}

// The end of the first of `count` equal shares of what is left until the deadline.
Deadline FirstShare(const Deadline& deadline, std::size_t count) {
    if (!deadline) {
        return {};
    }
    const auto now = Clock::now();
    return now + (*deadline - now) / static_cast<Clock::rep>(count);
}

std::string Describe(int error, unsigned int timeoutMilliseconds) {
    std::string text = SystemText(error);
    if (error == ETIMEDOUT && timeoutMilliseconds != 0) {
        text += " (limit " + std::to_string(timeoutMilliseconds) + " ms)";
    }
    return text;
}

OwnedDescriptor ConnectToAny(const std::string& host, unsigned short port,
                             unsigned int timeoutMilliseconds) {
    Deadline deadline;
    if (timeoutMilliseconds != 0) {
        deadline = Clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    }
    const std::vector<SocketAddress> addresses = SocketAddress::Resolve(host, port, false);
    std::string failures;
    for (std::size_t index = 0; index < addresses.size(); ++index) {
        OwnedDescriptor socket;
        const SocketAddress& address = addresses[index];
        const int error =
            ConnectTo(address, FirstShare(deadline, addresses.size() - index), socket);
        if (error == 0) {
            PrepareTcpSocket(socket.Get());
            return socket;
        }
        if (!failures.empty()) {
            failures += "; ";
        }
        if (address.Host() != host) {
            failures += address.Host() + ": ";
        }
        failures += Describe(error, timeoutMilliseconds);
    }
    throw std::runtime_error(failures);
}

}  // namespace

int ConnectTcp(const std::string& host, unsigned short port, unsigned int timeoutMilliseconds) {
    try {
        return ConnectToAny(host, port, timeoutMilliseconds).Release();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("Could not connect to " + host + " port " + std::to_string(port) +
                                 ": " + error.what());
    }
}

}  // namespace Brantel::Services
