#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace Brantel::Tests {

inline std::size_t CountEntries(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// Of this process; the descriptor that counting takes is left out.
inline std::size_t OpenDescriptors() {
    return CountEntries("/proc/self/fd") - 1;
}
inline std::size_t RunningThreads() {
    return CountEntries("/proc/self/task");
}

// True while the thread (of any process) waits inside a system call.
inline bool IsAsleep(pid_t thread) {
    std::ifstream file("/proc/" + std::to_string(thread) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t nameEnd = text.rfind(") ");
    return nameEnd != std::string::npos && text.compare(nameEnd + 2, 1, "S") == 0;
}

// The processor time that a process has used so far.
inline std::chrono::nanoseconds ProcessorTime(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        return std::chrono::nanoseconds::max();
    }
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// Sets the soft limit of this process, the hard one stays.
inline bool SetSoftLimit(__rlimit_resource_t resource, rlim_t value) {
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0) {
        return false;
    }
    limit.rlim_cur = value;
    return setrlimit(resource, &limit) == 0;
}

}  // namespace Brantel::Tests
