#include "HttpExchange.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Brantel::Server {

namespace {

constexpr std::chrono::milliseconds longestFarewell(250);

}  // namespace

bool HttpExchange::WaitFor(short event, Clock::time_point until) const {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        std::array<pollfd, 2> events{{{connection, event, 0}, {stop, POLLIN, 0}}};
        const int count = poll(events.data(), events.size(), static_cast<int>(left));
        if (count > 0) {
            return events[1].revents == 0;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
    }
}

bool HttpExchange::is_readable() const {
    return begin < end || WaitFor(POLLIN, deadline);
}

bool HttpExchange::is_writable() const {
    return WaitFor(POLLOUT, deadline);
}

// -1: no more in time, or too much; 0: the client has ended its side.
ssize_t HttpExchange::Receive() {
    while (WaitFor(POLLIN, deadline)) {
        const ssize_t size = recv(connection, buffer.data(), std::min(buffer.size(), allowed), 0);
        if (size >= 0) {
            begin = 0;
            end = static_cast<std::size_t>(size);
            allowed -= end;
            return size;
        }
        if (errno != EINTR && errno != EAGAIN) {
            return -1;
        }
    }
    return -1;
}

ssize_t HttpExchange::read(char* target, std::size_t size) {
    if (begin == end) {
        const ssize_t received = allowed > 0 ? Receive() : -1;
        if (received <= 0) {
            return received;
        }
    }
    const std::size_t taken = std::min(size, end - begin);
    std::memcpy(target, buffer.data() + begin, taken);
    begin += taken;
    return static_cast<ssize_t>(taken);
}

ssize_t HttpExchange::write(const char* source, std::size_t size) {
    while (WaitFor(POLLOUT, deadline)) {
        const ssize_t sent = send(connection, source, size, MSG_NOSIGNAL);
        if (sent >= 0) {
            return sent;
        }
        if (errno != EINTR && errno != EAGAIN) {
            return -1;
        }
    }
    return -1;
}

void HttpExchange::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

void HttpExchange::get_local_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

void HttpExchange::Finish() {
    const auto until = std::min(deadline, Clock::now() + longestFarewell);
    shutdown(connection, SHUT_WR);
    ssize_t size = 1;
    while (size > 0 && WaitFor(POLLIN, until)) {
        size = recv(connection, buffer.data(), buffer.size(), 0);
    }
}

}  // namespace Brantel::Server
