#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {

// A program that runs beside the test. Killed at the end if it still runs. What it writes is kept.
class ProgramRun {
  public:
    // The program by its path, its arguments, and what to change in the environment.
    // `readyDescriptor` becomes its descriptor 3; -1: it has none. Throws std::system_error when it
    // can't be started.
    explicit ProgramRun(const std::vector<std::string>& command,
                        const std::vector<std::pair<std::string, std::string>>& environment = {},
                        int readyDescriptor = -1);
    ProgramRun(const ProgramRun&) = delete;
    ProgramRun& operator=(const ProgramRun&) = delete;
    ~ProgramRun();

    pid_t Id() const { return process; }
    void Signal(int signal) const;

    // Waits for the end: the exit code; 128 and the signal when one ended it; -1 when it still runs
    // after this time.
    int Wait(std::chrono::milliseconds limit);
    int Wait();

    // What it has written so far to its standard output and its standard error.
    std::string Output() const;
    std::string Errors() const;

  private:
    pid_t process = -1;
    bool ended = false;
    int outputFile = -1;
    int errorFile = -1;
};

}  // namespace Brantel::Tests
