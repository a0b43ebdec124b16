#pragma once

#include "Interrupts.h"
#include "Terminal.h"

#include <termios.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

namespace Brantel::Tool {

// The whole terminal for a view that keeps changing: keys arrive without Return, what was there
// before comes back at the end, however the program ends but by SIGKILL. One at a time.
class Screen {
  public:
    // Borrows the interrupts. `output`: the terminal's descriptor that is drawn on; keys come from
    // the standard input. Throws std::system_error when one of both is no terminal.
    Screen(Interrupts& interrupts, int output);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    Terminal::Size Size() const { return Terminal::SizeOf(output); }

    // Lines from the top, each cut to the width; what does not fit is replaced by its number.
    void Draw(const std::vector<std::string>& lines);

    enum class Event : std::uint8_t { TimeOut, Key, Resized, Ended };
    // Waits so long for a key, another size, or the end: the user's wish, or the terminal's.
    // Stopped by Ctrl-Z the terminal is given back until the program goes on.
    Event Wait(std::chrono::nanoseconds time, char& key);

  private:
    void Enter();
    void Leave();
    void Stop();

    Interrupts& interrupts;
    const int output;
    termios before{};
    Terminal::Size drawn;
    // Left by whoever ends the program, on any thread.
    std::atomic<bool> entered = false;
};

}  // namespace Brantel::Tool
