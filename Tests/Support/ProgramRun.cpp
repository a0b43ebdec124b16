#include "Support/ProgramRun.h"

#include "Support/Waiting.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace Brantel::Tests {

namespace {

constexpr int readyTarget = 3;

[[noreturn]] void Fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

int MakeFile(const char* name) {
    const int file = memfd_create(name, MFD_CLOEXEC);
    if (file < 0) {
        Fail(errno, "memfd_create");
    }
    return file;
}

std::string Contents(int file) {
    std::string text;
    std::array<char, 4096> part{};
    for (;;) {
        const ssize_t size = pread(file, part.data(), part.size(), static_cast<off_t>(text.size()));
        if (size <= 0) {
            return text;
        }
        text.append(part.data(), static_cast<std::size_t>(size));
    }
}

std::vector<std::string> Environment(
    const std::vector<std::pair<std::string, std::string>>& changes) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        bool changed = false;
        for (const auto& [name, value] : changes) {
            changed = changed || text.starts_with(name + "=");
        }
        if (!changed) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        result.push_back(name + "=" + value);
    }
    return result;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

}  // namespace

ProgramRun::ProgramRun(const std::vector<std::string>& command,
                       const std::vector<std::pair<std::string, std::string>>& environment,
                       int readyDescriptor)
    : outputFile(MakeFile("output")), errorFile(MakeFile("errors")) {
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = Environment(environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outputFile, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errorFile, STDERR_FILENO);
    if (readyDescriptor >= 0) {
        posix_spawn_file_actions_adddup2(&actions, readyDescriptor, readyTarget);
    }
    // The program begins without what the test, or who started it, blocks or ignores.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawn(&process, arguments.front().c_str(), &actions, &attributes,
                                  Pointers(arguments).data(), Pointers(variables).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        Fail(error, "posix_spawn " + command.front());
    }
}

ProgramRun::~ProgramRun() {
    if (!ended) {
        Signal(SIGKILL);
        waitpid(process, nullptr, 0);
    }
    close(outputFile);
    close(errorFile);
}

void ProgramRun::Signal(int signal) const {
    if (kill(process, signal) != 0) {
        Fail(errno, "kill");
    }
}

int ProgramRun::Wait(std::chrono::milliseconds limit) {
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (descriptor < 0) {
        Fail(errno, "pidfd_open");
    }
    pollfd watched{descriptor, POLLIN, 0};
    const int ready = poll(&watched, 1, static_cast<int>(limit.count()));
    close(descriptor);
    if (ready != 1) {
        return -1;
    }
    int status = 0;
    waitpid(process, &status, 0);
    ended = true;
    constexpr int signalBase = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : signalBase + WTERMSIG(status);
}

int ProgramRun::Wait() {
    return Wait(patience);
}

std::string ProgramRun::Output() const {
    return Contents(outputFile);
}

std::string ProgramRun::Errors() const {
    return Contents(errorFile);
}

}  // namespace Brantel::Tests
