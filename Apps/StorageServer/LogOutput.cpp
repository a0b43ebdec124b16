#include "LogOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace Brantel::Server {

namespace {

// Less than this a pipe takes as a whole or not at all once it says that it takes anything.
constexpr std::size_t pieceSize = 4096;

// A pipe or a terminal is opened anew: that it does not block is then a property of this
// descriptor and not of those that other programs write to.
int OpenAnew(int descriptor) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

}  // namespace

LogOutput::LogOutput(int descriptor) {
    struct stat file {};
    if (fstat(descriptor, &file) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "Could not log to descriptor " + std::to_string(descriptor));
    }
    isSocket = S_ISSOCK(file.st_mode);
    if (S_ISFIFO(file.st_mode) || S_ISCHR(file.st_mode)) {
        fd = OpenAnew(descriptor);
    }
    // Without the right to open it anew, a pipe is asked before each write.
    if (fd < 0) {
        fd = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    }
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(),
                                "Could not log to descriptor " + std::to_string(descriptor));
    }
}

LogOutput::LogOutput(const std::string& path) {
    constexpr mode_t mode = 0640;
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    fd = open(path.c_str(), flags, mode);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(),
                                path + ": the file could not be opened for writing");
    }
}

LogOutput::~LogOutput() {
    close(fd);
}

bool LogOutput::Write(std::string_view text) {
    while (!text.empty()) {
        const long size = WriteSome(text.substr(0, std::min(text.size(), pieceSize)));
        const bool goesOn =
            size > 0 || (size < 0 && (errno == EINTR || (errno == EAGAIN && WaitUntilTaken())));
        if (!goesOn) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(std::max(size, 0L)));
    }
    return true;
}

long LogOutput::WriteSome(std::string_view text) const {
    if (isSocket) {
        return send(fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    pollfd state{fd, POLLOUT, 0};
    if (poll(&state, 1, 0) == 0) {
        errno = EAGAIN;
        return -1;
    }
    return write(fd, text.data(), text.size());
}

// Looks once in a while whether it is abandoned.
bool LogOutput::WaitUntilTaken() {
    constexpr int pauseMilliseconds = 50;
    pollfd state{fd, POLLOUT, 0};
    poll(&state, 1, pauseMilliseconds);
    if (abandoned && deadline == Clock::time_point::max()) {
        deadline = Clock::now() + farewell;
    }
    return Clock::now() < deadline;
}

void LogOutput::Abandon() noexcept {
    abandoned = true;
}

}  // namespace Brantel::Server
