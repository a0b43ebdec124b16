#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

namespace Brantel::Server {

// Where lines go: a file, a pipe, a socket or a terminal, which may take nothing for ever. Used by
// one thread.
class LogOutput {
  public:
    // Writes to a copy of the descriptor. Throws std::system_error.
    explicit LogOutput(int descriptor);
    // Opens a file, made for its owner and its group when it is missing, at its end. Throws
    // std::system_error that names the path.
    explicit LogOutput(const std::string& path);
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;
    ~LogOutput();

    // Writes all of the text; waits while nothing is taken, until somebody calls Abandon and
    // `farewell` is over. False: not all of it was written, or the system refused it.
    bool Write(std::string_view text);

    // From any thread: gives a Write that waits no more than `farewell` from now on.
    void Abandon() noexcept;

    static constexpr std::chrono::seconds farewell{1};

  private:
    using Clock = std::chrono::steady_clock;

    long WriteSome(std::string_view text) const;
    bool WaitUntilTaken();

    int fd = -1;
    bool isSocket = false;
    std::atomic<bool> abandoned{false};
    Clock::time_point deadline = Clock::time_point::max();
};

}  // namespace Brantel::Server
