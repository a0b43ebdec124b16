#include "StorageProgram.h"

#include "Context.h"
#include "ExitCodes.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Brantel::Tool {

// What is printed is read from it.
class StorageProgram::Pipe {
  public:
    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        close(ends[0]);
        CloseInput();
    }

    int Input() const { return ends[1]; }
    int Output() const { return ends[0]; }
    void CloseInput() {
        if (ends[1] >= 0) {
            close(std::exchange(ends[1], -1));
        }
    }
    // False at the end.
    bool ReadTo(std::string& text) const {
        std::array<char, 4096> buffer{};
        const ssize_t size = read(ends[0], buffer.data(), buffer.size());
        if (size > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        return size > 0 || (size < 0 && errno == EINTR);
    }

  private:
    std::array<int, 2> ends{-1, -1};
};

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

int ExitStatus(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// Reads until there is no more, or without a pipe waits for the end of the process; asks the
// process to end, once, when the user asks.
int Await(pid_t process, const Interrupts& interrupts, const StorageProgram::Pipe* pipe,
          std::string& text) {
    const int watchedDescriptor =
        pipe == nullptr ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : pipe->Output();
    bool asked = false;
    for (bool goesOn = watchedDescriptor >= 0; goesOn;) {
        std::array<pollfd, 2> watched{
            {{watchedDescriptor, POLLIN, 0}, {interrupts.Descriptor(), POLLIN, 0}}};
        poll(watched.data(), asked ? 1 : 2, -1);
        if (watched[0].revents != 0) {
            goesOn = pipe != nullptr && pipe->ReadTo(text);
        }
        if (!asked && watched[1].revents != 0) {
            kill(process, SIGTERM);
            asked = true;
        }
    }
    if (pipe == nullptr) {
        close(watchedDescriptor);
    }
    return ExitStatus(process);
}

}  // namespace

StorageProgram::StorageProgram(Context& context, const std::string& path)
    : context(context), path(Find(path)) {}

int StorageProgram::Run(const std::vector<std::string>& arguments) const {
    std::string ignored;
    return Run(arguments, nullptr, ignored);
}

int StorageProgram::Run(const std::vector<std::string>& arguments, std::string& text) const {
    Pipe pipe;
    return Run(arguments, &pipe, text);
}

int StorageProgram::Run(const std::vector<std::string>& arguments, Pipe* pipe,
                        std::string& text) const {
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
    posix_spawn_file_actions_adddup2(
        &actions, pipe == nullptr ? context.Out().Descriptor() : pipe->Input(), STDOUT_FILENO);
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
    if (pipe != nullptr) {
        pipe->CloseInput();
    }
    const int status = Await(process, context.Ends(), pipe, text);
    if (!WIFEXITED(status)) {
        throw std::runtime_error(path + " was ended by signal " + std::to_string(WTERMSIG(status)));
    }
    return WEXITSTATUS(status);
}

int StorageProgram::RunForFolder(const std::string& job, const std::string& folder,
                                 const std::vector<std::string>& more) const {
    std::vector<std::string> arguments{job, folder};
    arguments.insert(arguments.end(), more.begin(), more.end());
    if (!context.Style().json) {
        return Run(arguments);
    }
    std::string text;
    const int exitCode = Run(arguments, text);
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    const bool hasVerdict = exitCode != ExitCodes::failed && !lines.empty();
    const std::size_t problems = lines.size() - (hasVerdict ? 1 : 0);
    for (std::size_t i = 0; i < problems; ++i) {
        JsonObject line;
        line.Add("where", std::string_view(folder)).Add("problem", std::string_view(lines[i]));
        context.Out().Line(line.Print());
    }
    if (hasVerdict) {
        JsonObject line;
        line.Add(job == "check" ? "checked" : "recovered", std::string_view(folder));
        line.Add("result", std::string_view(lines.back()));
        line.Add("findings", static_cast<std::int64_t>(problems));
        context.Out().Line(line.Print());
    }
    return exitCode;
}

}  // namespace Brantel::Tool
