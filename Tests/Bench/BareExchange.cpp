#include "Bench/BareExchange.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

namespace Brantel::Bench {

namespace {

bool SendAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

ssize_t ReceiveSome(int fd, char* data, std::size_t size, bool polls) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::microseconds budget{50};
    if (polls) {
        const Clock::time_point start = Clock::now();
        for (int tries = 1;; ++tries) {
            const ssize_t got = ::recv(fd, data, size, MSG_DONTWAIT);
            if (got >= 0 || errno != EAGAIN) {
                return got;
            }
            if (tries % 4 == 0 && Clock::now() - start >= budget) {
                break;
            }
        }
    }
    return ::recv(fd, data, size, 0);
}

bool ReceiveAll(int fd, char* data, std::size_t size, bool polls) {
    while (size > 0) {
        const ssize_t got = ReceiveSome(fd, data, size, polls);
        if (got <= 0) {
            return false;
        }
        data += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

}  // namespace

BareExchange::BareExchange(int fd, const BareShape& shape)
    : fd(fd), shape(shape), request(shape.requestSize, 'q'), answer(shape.answerSize) {
    if (!SendAll(fd, reinterpret_cast<const char*>(&shape), sizeof(shape))) {
        throw std::runtime_error("The bare exchange could not be started");
    }
}

BareExchange::~BareExchange() {
    ::close(fd);
}

void BareExchange::Call() {
    if (!SendAll(fd, request.data(), request.size()) ||
        !ReceiveAll(fd, answer.data(), answer.size(), shape.polls != 0)) {
        throw std::runtime_error("The bare exchange was cut off");
    }
}

void ServeBareExchange(int fd) {
    BareShape shape;
    if (ReceiveAll(fd, reinterpret_cast<char*>(&shape), sizeof(shape), false)) {
        std::vector<char> request(shape.requestSize);
        const std::vector<char> answer(shape.answerSize, 'a');
        while (ReceiveAll(fd, request.data(), request.size(), shape.polls != 0) &&
               SendAll(fd, answer.data(), answer.size())) {
        }
    }
    ::close(fd);
}

}  // namespace Brantel::Bench
