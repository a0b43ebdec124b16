#include "SocketReader.h"

#include "ResizeForOverwrite.h"
#include "SocketDisconnected.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace Brantel::Services {

namespace {

// Bytes for which memory is taken at once; beyond it a string doubles as it fills.
constexpr std::size_t wholeAllocation = std::size_t{16} * 1024 * 1024;

// How fast the other side is taken to go through a message twice: some processors need half of
// that time, others twice as long.
constexpr std::size_t bytesPerNanosecond = 8;
// Then it is the medium that one waits for, or somebody who has no processor.
constexpr std::uint64_t longestPatience = 2'000'000;  // nanoseconds

}  // namespace

inline std::size_t SocketReader::ReceiveSome(void* target, std::size_t size, Wait wait) {
    if (failure != 0) {
        errno = failure;
        ThrowLost(-1);
    }
    long result = governor.MayPoll(memory) ? Poll(target, size) : ::recv(fd, target, size, 0);
    if (result < 0 && (errno == EINTR || errno == EAGAIN)) {
        result = Block(target, size, wait);
    }
    if (result <= 0) {
        ThrowLost(result);
    }
    received += static_cast<std::size_t>(result);
    if (wait == Wait::InMessage) {
        CheckPace(static_cast<std::size_t>(result));
    }
    return static_cast<std::size_t>(result);
}

void SocketReader::ExpectAnswerTo(std::size_t bytes) {
    const auto wanted = std::min<std::uint64_t>(longestPatience, bytes / bytesPerNanosecond);
    patience.store(static_cast<std::int64_t>(wanted), std::memory_order_relaxed);
}

void SocketReader::Grow(std::size_t size) {
    // Not value-initialised: pages that are never received into are never touched.
    std::unique_ptr<unsigned char[]> grown(  // NOLINT(modernize-avoid-c-arrays)
        new unsigned char[size]);            // NOLINT(modernize-make-unique)
    if (Available() > 0) {
        std::memcpy(grown.get(), Data(), Available());
    }
    end -= begin;
    begin = 0;
    buffer = std::move(grown);
    allocated = size;
}

void SocketReader::ReceiveAtLeast(std::size_t size, Wait wait) {
    if (begin == end) {
        begin = end = 0;
    }
    if (allocated < size) {
        Grow(size <= firstCapacity ? firstCapacity : capacity);
    } else if (allocated - begin < size) {
        std::memmove(buffer.get(), Data(), Available());
        end -= begin;
        begin = 0;
    }
    do {
        if (admission) {
            admission(1);
        }
        end += ReceiveSome(buffer.get() + end, allocated - end, wait);
    } while (Available() < size);
}

// The system tells an error of a socket once; the end of the stream again and again.
void SocketReader::ReceiveWhatCame() noexcept {
    if (begin == end) {
        begin = end = 0;
    }
    const ssize_t result = ::recv(fd, buffer.get() + end, allocated - end, MSG_DONTWAIT);
    if (result > 0) {
        end += static_cast<std::size_t>(result);
        received += static_cast<std::size_t>(result);
    } else if (result < 0 && errno != EAGAIN && errno != EINTR) {
        failure = errno;
    }
}

void SocketReader::Read(char* target, std::size_t size) {
    const std::size_t buffered = std::min(size, Available());
    std::memcpy(target, Data(), buffered);
    Consume(buffered);
    for (std::size_t done = buffered; done < size;) {
        const std::size_t wanted = size - done;
        done += ReceiveSome(target + done, admission ? admission(wanted) : wanted, Wait::InMessage);
    }
}

void SocketReader::Append(std::string& text, std::size_t size) {
    const std::size_t whole = text.size() + size;
    text.reserve(std::min(whole, text.size() + wholeAllocation));
    while (text.size() < whole) {
        const std::size_t old = text.size();
        if (old == text.capacity()) {
            text.reserve(std::min(whole, 2 * old));
        }
        const std::size_t next = std::min(whole, text.capacity());
        ResizeForOverwrite(text, next);
        Read(text.data() + old, next - old);
    }
}

void SocketReader::Discard(std::size_t size) {
    while (size > 0) {
        Fill(1);
        const std::size_t dropped = std::min(size, Available());
        Consume(dropped);
        size -= dropped;
    }
}

// Polls the socket for the governor's budget. Returns what `recv` returned: -1 with EAGAIN when
// nothing came.
long SocketReader::Poll(void* target, std::size_t size) {
    using Clock = std::chrono::steady_clock;
    // Reading the clock is cheap beside a `recv`, yet not free.
    constexpr unsigned triesPerClockReading = 4;
    long result = ::recv(fd, target, size, MSG_DONTWAIT);
    if (result >= 0 || errno != EAGAIN || !governor.Enter()) {
        return result;
    }
    const std::chrono::nanoseconds budget =
        governor.Budget() +
        std::chrono::nanoseconds(patience.exchange(0, std::memory_order_relaxed));
    const Clock::time_point start = Clock::now();
    for (unsigned tries = 1;; ++tries) {
        result = ::recv(fd, target, size, MSG_DONTWAIT);
        if (result >= 0 || errno != EAGAIN ||
            (tries % triesPerClockReading == 0 && Clock::now() - start >= budget)) {
            break;
        }
    }
    const int error = errno;
    // Data that came much later than the budget came because the processor was taken away
    // meanwhile.
    governor.Leave(memory, result >= 0 && Clock::now() - start <= 2 * budget);
    errno = error;
    return result;
}

// A socket with a pace lets no single wait last for ever; nor does one that somebody has made
// non-blocking behind our back.
long SocketReader::Block(void* target, std::size_t size, Wait wait) {
    for (;;) {
        const long result = ::recv(fd, target, size, 0);
        if (result >= 0 || (errno != EINTR && errno != EAGAIN)) {
            return result;
        }
        if (errno == EAGAIN) {
            pollfd readable{fd, POLLIN, 0};
            ::poll(&readable, 1, wait == Wait::InMessage ? pace.LongestWait() : -1);
        }
        if (wait == Wait::InMessage) {
            CheckPace(0);
        }
    }
}

void SocketReader::CheckPace(std::size_t bytes) {
    if (!pace.Keeps(bytes)) {
        tooSlow = true;
        throw SocketDisconnected("Connection lost: slower than " + pace.Asked());
    }
}

void SocketReader::ThrowLost(long result) {
    if (result == 0) {
        throw SocketDisconnected("Connection closed by the other side");
    }
    throw SocketDisconnected("Connection lost: " + std::system_category().message(errno));
}

}  // namespace Brantel::Services
