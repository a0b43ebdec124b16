#include "TerminalRun.h"

#include "Support/Waiting.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>

namespace Brantel::Tests {

namespace {

// In the child, between fork and exec.
[[noreturn]] void Become(std::vector<std::string> command,
                         const std::vector<std::pair<std::string, std::string>>& environment) {
    for (const auto& [name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(arguments.front(), arguments.data());
    _exit(127);
}

}  // namespace

TerminalRun::TerminalRun(const std::vector<std::string>& command,
                         const std::vector<std::pair<std::string, std::string>>& environment) {
    constexpr winsize size{30, 100, 0, 0};
    std::vector<std::pair<std::string, std::string>> variables{
        {"TERM", "xterm-256color"}, {"LC_ALL", "C.UTF-8"}, {"NO_COLOR", ""}};
    variables.insert(variables.end(), environment.begin(), environment.end());
    process = forkpty(&terminal, nullptr, nullptr, &size);
    if (process < 0) {
        throw std::system_error(errno, std::generic_category(), "forkpty");
    }
    if (process == 0) {
        Become(command, variables);
    }
    fcntl(terminal, F_SETFD, FD_CLOEXEC);
    // The settings outlive the program, and what it wrote last is read, while somebody holds this.
    held = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

TerminalRun::~TerminalRun() {
    if (!ended) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    close(held);
    close(terminal);
}

bool TerminalRun::ReadMore() {
    constexpr int lookMilliseconds = 20;
    pollfd watched{terminal, POLLIN, 0};
    if (poll(&watched, 1, lookMilliseconds) != 1) {
        return false;
    }
    std::array<char, 4096> part{};
    const ssize_t size = read(terminal, part.data(), part.size());
    if (size <= 0) {
        return false;
    }
    text.append(part.data(), static_cast<std::size_t>(size));
    return true;
}

bool TerminalRun::Await(const std::string& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        const std::size_t position = text.find(wanted, awaited);
        if (position != std::string::npos) {
            awaited = position + wanted.size();
            return true;
        }
        siginfo_t state{};
        const bool hasEnded =
            waitid(P_PID, static_cast<id_t>(process), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            state.si_pid == process;
        const bool hasMore = ReadMore();
        if (!hasMore && (hasEnded || std::chrono::steady_clock::now() > deadline)) {
            return false;
        }
    }
}

void TerminalRun::Type(const std::string& keys) const {
    if (write(terminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
        throw std::system_error(errno, std::generic_category(), "typing");
    }
}

void TerminalRun::Resize(unsigned short columns, unsigned short rows) const {
    const winsize size{rows, columns, 0, 0};
    ioctl(terminal, TIOCSWINSZ, &size);
}

void TerminalRun::Signal(int signal) const {
    kill(process, signal);
}

int TerminalRun::Wait() {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (waitpid(process, &status, WNOHANG) != process) {
        ReadMore();
        if (std::chrono::steady_clock::now() > deadline) {
            return -1;
        }
    }
    ended = true;
    while (ReadMore()) {
    }
    constexpr int signalBase = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : signalBase + WTERMSIG(status);
}

bool TerminalRun::IsRaw() const {
    termios settings{};
    tcgetattr(held, &settings);
    return (settings.c_lflag & static_cast<tcflag_t>(ICANON)) == 0;
}

bool TerminalRun::AwaitStop() const {
    siginfo_t state{};
    return waitid(P_PID, static_cast<id_t>(process), &state, WSTOPPED) == 0 &&
           state.si_code == CLD_STOPPED;
}

}  // namespace Brantel::Tests
