#include "Output.h"

#include "Interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

namespace Brantel::Tool {

namespace {

constexpr std::size_t enough = std::size_t{64} * 1024;

void OpenStandardDescriptors() {
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

[[noreturn]] void Fail(int error) {
    if (error == EPIPE) {
        throw OutputClosed("The standard output is closed");
    }
    throw std::system_error(error, std::generic_category(), "Writing the standard output failed");
}

// The descriptor may be one that does not block, set so by whoever shares it.
void WaitUntilWritable(int descriptor) {
    pollfd watched{descriptor, POLLOUT, 0};
    if (poll(&watched, 1, -1) < 0 && errno != EINTR) {
        Fail(errno);
    }
}

// How long nothing was taken although the end was requested.
class Patience {
  public:
    void Check() {
        constexpr std::chrono::milliseconds longest(300);
        const auto now = Interrupts::Clock::now();
        if (waits && now - begin > longest) {
            throw OutputBlocked("Interrupted; nobody takes what is written");
        }
        begin = waits ? begin : now;
        waits = true;
    }
    void Renew() { waits = false; }

  private:
    bool waits = false;
    Interrupts::Clock::time_point begin;
};

}  // namespace

Output Output::TakeStandardOutput() {
    OpenStandardDescriptors();
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw std::system_error(errno, std::generic_category(),
                                "Taking over the standard output failed");
    }
    return Output(own);
}

Output::Output(int descriptor) : descriptor(descriptor), isTerminal(isatty(descriptor) == 1) {}

Output::Output(Output&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)),
      isTerminal(other.isTerminal),
      interrupts(other.interrupts),
      collected(std::move(other.collected)) {}

Output::~Output() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void Output::Write(std::string_view bytes) {
    if (collected.size() + bytes.size() < enough) {
        collected.append(bytes);
        return;
    }
    Flush();
    WriteAll(bytes);
}

void Output::Line(std::string_view text) {
    Write(text);
    Write("\n");
    if (isTerminal) {
        Flush();
    }
}

void Output::Flush() {
    const std::string bytes = std::exchange(collected, {});
    WriteAll(bytes);
}

void Output::WriteAll(std::string_view bytes) const {
    std::optional<Interrupts::Waiting> waiting;
    if (interrupts != nullptr) {
        waiting.emplace(*interrupts);
    }
    Patience patience;
    while (!bytes.empty()) {
        const ssize_t size = write(descriptor, bytes.data(), bytes.size());
        if (size >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(size));
            patience.Renew();
            continue;
        }
        if (errno == EAGAIN) {
            WaitUntilWritable(descriptor);
        } else if (errno != EINTR) {
            Fail(errno);
        }
        if (interrupts != nullptr && interrupts->Requested()) {
            patience.Check();
        }
    }
}

}  // namespace Brantel::Tool
