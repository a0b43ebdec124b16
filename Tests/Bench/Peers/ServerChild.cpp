#include "Bench/Peers/ServerChild.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace Brantel::Bench {

namespace {

constexpr int readyDescriptor = 3;
constexpr std::chrono::milliseconds rest{10};
constexpr int mostTries = 1000;
constexpr int endTries = 500;

void Check(bool good, const std::string& what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

// In the child, between fork and exec: only calls that are safe there.
struct Start {
    std::vector<char*> words;
    int log = -1;
    int ready = -1;
    int endSignal = SIGTERM;
    bool changesUser = false;
    uid_t user = 0;
    gid_t group = 0;
    pid_t parent = -1;

    [[noreturn]] void Go() {
        constexpr int cannotStart = 127;
        ::dup2(log, STDOUT_FILENO);
        ::dup2(log, STDERR_FILENO);
        ::dup2(ready, readyDescriptor);
        const bool isUser = !changesUser || (::setgroups(0, nullptr) == 0 && ::setgid(group) == 0 &&
                                             ::setuid(user) == 0);
        // Behind the change of the user, which would take it back.
        ::prctl(PR_SET_PDEATHSIG, endSignal);
        if (isUser && ::getppid() == parent) {
            ::execv(words.front(), words.data());
        }
        ::_exit(cannotStart);
    }
};

std::string ReadFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

pid_t Fork(const std::vector<std::string>& command, const std::string& folder, int ready,
           int endSignal, const std::string& user) {
    std::vector<std::string> texts = command;
    Start start;
    for (std::string& text : texts) {
        start.words.push_back(text.data());
    }
    start.words.push_back(nullptr);
    start.ready = ready;
    start.endSignal = endSignal;
    start.parent = ::getpid();
    if (!user.empty() && ::geteuid() == 0) {
        const passwd* const entry = ::getpwnam(user.c_str());
        if (entry == nullptr) {
            throw std::runtime_error("there is no user " + user);
        }
        start.changesUser = true;
        start.user = entry->pw_uid;
        start.group = entry->pw_gid;
        Check(::chown(folder.c_str(), start.user, start.group) == 0, "chown " + folder);
    }
    start.log = ::open((folder + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    Check(start.log >= 0, "open " + folder + "/log");
    const pid_t child = ::fork();
    if (child == 0) {
        start.Go();
    }
    ::close(start.log);
    Check(child > 0, "fork");
    return child;
}

}  // namespace

ServerChild::ServerChild(const std::vector<std::string>& command, const std::string& folder,
                         int endSignal, const std::string& user)
    : folder(folder), endSignal(endSignal) {
    std::array<int, 2> ends{};
    Check(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
    ready = ends[0];
    process = Fork(command, folder, ends[1], endSignal, user);
    ::close(ends[1]);
}

ServerChild::~ServerChild() {
    ::close(ready);
    ::kill(process, endSignal);
    for (int tries = 0; ::waitpid(process, nullptr, WNOHANG) == 0; ++tries) {
        if (tries == endTries) {
            ::kill(process, SIGKILL);
        }
        std::this_thread::sleep_for(rest);
    }
}

std::string ServerChild::ReadReady() {
    std::string text;
    std::array<char, 512> part{};
    for (;;) {
        const ssize_t size = ::read(ready, part.data(), part.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            break;
        }
        text.append(part.data(), static_cast<std::size_t>(size));
    }
    if (text.empty()) {
        throw std::runtime_error("the server did not start: " + Log());
    }
    return text;
}

void ServerChild::CheckAndRest(int tries) const {
    siginfo_t ended{};
    ::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (ended.si_pid != 0) {
        throw std::runtime_error("the server ended: " + Log());
    }
    if (tries == mostTries) {
        throw std::runtime_error("the server does not answer: " + Log());
    }
    std::this_thread::sleep_for(rest);
}

std::string ServerChild::Log() const {
    return ReadFile(folder + "/log");
}

void ServerChild::Run(const std::vector<std::string>& command, const std::string& folder,
                      const std::string& user) {
    const pid_t child = Fork(command, folder, STDERR_FILENO, SIGKILL, user);
    int status = -1;
    ::waitpid(child, &status, 0);
    if (status != 0) {
        throw std::runtime_error(command.front() + " failed: " + ReadFile(folder + "/log"));
    }
}

std::string FindProgram(const std::string& name, const std::vector<std::string>& folders) {
    std::vector<std::string> all = folders;
    const char* const path = std::getenv("PATH");
    std::istringstream text(path == nullptr ? "" : path);
    for (std::string folder; std::getline(text, folder, ':');) {
        all.push_back(folder);
    }
    all.emplace_back("/usr/sbin");
    for (const std::string& folder : all) {
        if (::access((folder + "/" + name).c_str(), X_OK) == 0) {
            return folder + "/" + name;
        }
    }
    return "";
}

int FreePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    const bool good =
        ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    const int error = errno;
    ::close(fd);
    errno = error;
    Check(good, "bind");
    return ntohs(address.sin_port);
}

}  // namespace Brantel::Bench
