#pragma once

#include <sys/types.h>
#include <termios.h>

#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {

// A program in a terminal of its own, which the test types into and reads. Killed at the end if it
// still runs.
class TerminalRun {
  public:
    // The terminal is 100 columns by 30 rows, shows UTF-8 and colors. Throws std::system_error.
    explicit TerminalRun(const std::vector<std::string>& command,
                         const std::vector<std::pair<std::string, std::string>>& environment = {});
    TerminalRun(const TerminalRun&) = delete;
    TerminalRun& operator=(const TerminalRun&) = delete;
    ~TerminalRun();

    // True as soon as the terminal has got this text since the last time that something was
    // awaited; false when it does not come, or the program has ended before.
    bool Await(const std::string& text);
    void Type(const std::string& keys) const;
    void Resize(unsigned short columns, unsigned short rows) const;
    void Signal(int signal) const;

    // Waits for the end, as ProgramRun does.
    int Wait();

    // Everything that the terminal got.
    const std::string& Text() const { return text; }
    // How the terminal is set: that keys are shown, that lines end with Return.
    bool IsRaw() const;
    // Whether the program is stopped.
    bool AwaitStop() const;

  private:
    // False when nothing more comes.
    bool ReadMore();

    pid_t process = -1;
    bool ended = false;
    int terminal = -1;
    int held = -1;
    std::string text;
    std::size_t awaited = 0;
};

}  // namespace Brantel::Tests
