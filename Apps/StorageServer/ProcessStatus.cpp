#include "ProcessStatus.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <limits>
#include <memory>
#include <string>

namespace Brantel::Server {

namespace {

std::uint64_t CountDescriptors() {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), &closedir);
    std::uint64_t count = 0;
    // The three that are none: ".", ".." and the folder's own.
    while (folder && readdir(folder.get()) != nullptr) {
        ++count;
    }
    return count > 3 ? count - 3 : 0;
}

// The number behind a name in a file of lines "name: number ...".
std::uint64_t ReadNumber(const char* path, const std::string& name) {
    std::ifstream file(path);
    std::string word;
    while (file >> word) {
        if (word == name) {
            std::uint64_t number = 0;
            file >> number;
            return number;
        }
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

double Seconds(const timeval& time) {
    constexpr double microsecond = 1e-6;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * microsecond;
}

}  // namespace

ProcessStatus ProcessStatus::Look() {
    constexpr std::uint64_t kibibyte = 1024;
    constexpr const char* statusFile = "/proc/self/status";
    ProcessStatus status;
    status.residentBytes = ReadNumber(statusFile, "VmRSS:") * kibibyte;
    status.threads = ReadNumber(statusFile, "Threads:");
    status.openDescriptors = CountDescriptors();
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        status.descriptorLimit = limit.rlim_cur;
    }
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) == 0) {
        status.processorSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
    }
    return status;
}

}  // namespace Brantel::Server
