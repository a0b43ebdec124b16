#pragma once

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <system_error>

namespace Brantel::Tests {

// A forked copy of the test program that runs one function and ends with what it returns (99 for an
// exception, whose text goes to the standard error). Made before the test starts threads of its
// own. The child is killed if it still runs at the end.
class ChildProcess {
  public:
    // One end of a pair of connected stream sockets is the body's, the other the test's: for saying
    // "ready" and "go on".
    using Body = std::function<int(int channel)>;

    explicit ChildProcess(const Body& body) {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        std::fflush(nullptr);
        process = fork();
        if (process < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (process == 0) {
            close(ends[0]);
            Leave(body, ends[1]);
        }
        close(ends[1]);
        channel = ends[0];
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        close(channel);
        if (process > 0) {
            kill(process, SIGKILL);
            Wait();
        }
    }

    pid_t Id() const { return process; }
    // The test's end of the pair; stays this object's.
    int Channel() const { return channel; }

    // One byte to or from the other side; false when that has ended.
    static bool Say(int channel) { return send(channel, "!", 1, MSG_NOSIGNAL) == 1; }
    static bool Hear(int channel) {
        char byte = 0;
        return recv(channel, &byte, 1, 0) == 1;
    }
    bool Say() const { return Say(channel); }
    bool Hear() const { return Hear(channel); }

    // Stops the child (SIGSTOP) and waits until it stands still.
    bool Stop() const {
        int status = 0;
        return kill(process, SIGSTOP) == 0 && waitpid(process, &status, WUNTRACED) == process &&
               WIFSTOPPED(status);
    }

    bool Continue() const { return kill(process, SIGCONT) == 0; }

    // What the body returned; -1 when it ended in another way.
    int Wait() {
        int status = 0;
        const pid_t ended = waitpid(process, &status, 0);
        process = -1;
        return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    [[noreturn]] static void Leave(const Body& body, int channel) {
        constexpr int exceptionResult = 99;
        int result = exceptionResult;
        try {
            result = body(channel);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
        }
        // Orderly, so that leaks are looked for and coverage is written.
        std::exit(result);
    }

    pid_t process = -1;
    int channel = -1;
};

}  // namespace Brantel::Tests
