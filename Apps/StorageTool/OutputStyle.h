#pragma once

#include "TimeText.h"

#include <chrono>
#include <string>

namespace Brantel::Tool {

// How the user wants to see things: what the options of all verbs say.
struct OutputStyle {
    // One JSON object a line instead of words and tables.
    bool json = false;
    // Nothing on the standard error but failures.
    bool quiet = false;
    bool verbose = false;
    // Of the standard output and of the standard error.
    bool colorsOutput = false;
    bool colorsMessages = false;
    // Block characters can be shown.
    bool unicode = false;
    TimeFormat timeFormat = TimeFormat::Auto;
};

// The options of all verbs, as they were given.
struct CommonOptions {
    // Throws Misuse. `outputIsTerminal`: of the tool's own output.
    OutputStyle Style(bool outputIsTerminal) const;
    // 0: no limit. Throws Misuse.
    std::chrono::nanoseconds Timeout() const;

    std::string server;
    std::string timeout;
    std::string color = "auto";
    std::string timeFormat = "auto";
    bool json = false;
    bool quiet = false;
    bool verbose = false;
};

}  // namespace Brantel::Tool
