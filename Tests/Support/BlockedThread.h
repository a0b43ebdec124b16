#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

namespace Brantel::Tests {

inline long ThisThread() {
    return ::syscall(SYS_gettid);
}

// Waits until the thread (of this process or of a child) is blocked inside the system call of that
// number: what the kernel says, so that a test never guesses by the clock. Where the kernel does
// not tell the call, until the thread is asleep.
inline void WaitUntilBlockedIn(long thread, long call) {
    const std::string folder = "/proc/" + std::to_string(thread);
    const std::string wanted = std::to_string(call) + ' ';
    for (;;) {
        std::string line;
        std::ifstream calls(folder + "/syscall");
        if (std::getline(calls, line)) {
            if (line.starts_with(wanted)) {
                return;
            }
        } else {
            std::ifstream state(folder + "/stat");
            std::getline(state, line);
            const std::size_t name = line.rfind(')');
            if (name != std::string::npos && line.compare(name, 3, ") S") == 0) {
                return;
            }
        }
        std::this_thread::yield();
    }
}

}  // namespace Brantel::Tests
