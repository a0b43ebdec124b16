#include "Announcement.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace Brantel::Server {

namespace {

[[noreturn]] void Fail(int descriptor) {
    throw std::runtime_error("Could not write to descriptor " + std::to_string(descriptor) +
                             " (--ready-fd): " + std::generic_category().message(errno) +
                             "; pass one that is open, or leave it out");
}

void WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(descriptor, text.data(), text.size());
        if (size >= 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno == EPIPE) {
            return;
        } else if (errno != EINTR) {
            Fail(descriptor);
        }
    }
}

}  // namespace

Announcement::Announcement(int readyDescriptor, std::string file)
    : readyDescriptor(readyDescriptor), file(std::move(file)) {
    if (readyDescriptor >= 0 && fcntl(readyDescriptor, F_SETFD, FD_CLOEXEC) != 0) {
        Fail(readyDescriptor);
    }
}

void Announcement::Announce(const std::vector<std::string>& addresses) {
    std::string lines;
    for (const std::string& address : addresses) {
        lines += address + "\n";
    }
    if (!file.empty()) {
        WriteFile(lines);
    }
    for (const std::string& address : addresses) {
        std::printf("Listening on %s\n", address.c_str());
    }
    std::fflush(stdout);
    if (readyDescriptor >= 0) {
        WriteAll(readyDescriptor, lines);
        close(readyDescriptor);
        readyDescriptor = -1;
    }
}

void Announcement::WriteFile(const std::string& text) const {
    const std::string unfinished = file + ".new";
    std::ofstream stream(unfinished, std::ios::binary | std::ios::trunc);
    stream << text;
    stream.close();
    if (!stream || std::rename(unfinished.c_str(), file.c_str()) != 0) {
        const int error = errno;
        std::remove(unfinished.c_str());
        throw std::runtime_error("Could not write " + file +
                                 " (--port-file): " + std::generic_category().message(error) +
                                 "; make its folder for the server's user, or choose another file");
    }
}

}  // namespace Brantel::Server
