#include "Recording/InputFiles.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace Brantel::Tool {

namespace {

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool IsStandardInput(const std::string& path) {
    return path == "-";
}

}  // namespace

InputFiles::InputFiles(std::vector<std::string> paths, int endDescriptor)
    : paths(paths.empty() ? std::vector<std::string>{"-"} : std::move(paths)),
      endDescriptor(endDescriptor),
      stopDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (stopDescriptor < 0) {
        Fail("eventfd");
    }
}

InputFiles::~InputFiles() {
    Close();
    close(stopDescriptor);
}

bool InputFiles::Open() {
    Close();
    if (next == paths.size() || wasStopped) {
        return false;
    }
    const std::string& path = paths[next++];
    owned = !IsStandardInput(path);
    name = owned ? path : "The standard input";
    // A pipe that nobody writes to is waited for in Read, where the wait can be ended.
    descriptor =
        owned ? open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK) : STDIN_FILENO;
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        Fail(name);
    }
    mayBlock = !S_ISREG(status.st_mode);
    if (owned) {
        fcntl(descriptor, F_SETFL, 0);
    }
    return true;
}

std::size_t InputFiles::Read(char* to, std::size_t size) {
    for (;;) {
        if (!WaitForBytes()) {
            return 0;
        }
        const ssize_t count = read(descriptor, to, size);
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR && errno != EAGAIN) {
            Fail(name);
        }
    }
}

bool InputFiles::WaitForBytes() {
    std::array<pollfd, 3> watched{
        {{endDescriptor, POLLIN, 0}, {stopDescriptor, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    // Files are always ready: only the end is looked for.
    while (poll(watched.data(), mayBlock ? 3 : 2, mayBlock ? -1 : 0) < 0) {
        if (errno != EINTR) {
            Fail("poll");
        }
    }
    wasStopped = watched[0].revents != 0 || watched[1].revents != 0;
    return !wasStopped;
}

void InputFiles::Stop() const {
    const std::uint64_t one = 1;
    // Fails only when it is set more often than 64 bits count.
    [[maybe_unused]] const ssize_t size = write(stopDescriptor, &one, sizeof one);
}

std::size_t InputFiles::TotalSize(const std::vector<std::string>& paths) {
    std::size_t total = 0;
    for (const std::string& path : paths) {
        struct stat status {};
        if (IsStandardInput(path) || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return 0;
        }
        total += static_cast<std::size_t>(status.st_size);
    }
    return total;
}

void InputFiles::Close() {
    if (owned && descriptor >= 0) {
        close(descriptor);
    }
    descriptor = -1;
}

}  // namespace Brantel::Tool
