#include "StorageProgram.h"

#include "Context.h"

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace Brantel::Tool {

namespace {

constexpr const char* name = "brantel-storaged";

std::string Find(const std::string& path) {
    if (!path.empty()) {
        return path;
    }
    std::error_code ignored;
    const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", ignored);
    const std::filesystem::path beside = own.parent_path() / name;
    return std::filesystem::exists(beside, ignored) ? beside.string() : name;
}

// Waits for the end of the process, and asks it for that once when the user asks.
int Await(pid_t process, const Interrupts& interrupts) {
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    bool asked = false;
    for (;;) {
        std::array<pollfd, 2> watched{
            {{descriptor, POLLIN, 0}, {interrupts.Descriptor(), POLLIN, 0}}};
        poll(watched.data(), asked ? 1 : 2, -1);
        if (watched[0].revents != 0 || descriptor < 0) {
            break;
        }
        if (!asked && watched[1].revents != 0) {
            kill(process, SIGTERM);
            asked = true;
        }
    }
    close(descriptor);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

}  // namespace

StorageProgram::StorageProgram(Context& context, const std::string& path)
    : context(context), path(Find(path)) {}

int StorageProgram::Run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words{path};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    context.Out().Flush();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, context.Out().Descriptor(), STDOUT_FILENO);
    // Signals are taken here by a thread; the program wants them itself.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t process = -1;
    const int error =
        posix_spawnp(&process, path.c_str(), &actions, &attributes, pointers.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), path);
    }
    const int status = Await(process, context.Ends());
    if (!WIFEXITED(status)) {
        throw std::runtime_error(path + " was ended by signal " + std::to_string(WTERMSIG(status)));
    }
    return WEXITSTATUS(status);
}

}  // namespace Brantel::Tool
