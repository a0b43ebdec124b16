#include "OutputStyle.h"

#include "DurationText.h"
#include "ExitCodes.h"
#include "Terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace Brantel::Tool {

namespace {

bool HasColors(const std::string& choice, bool isTerminal) {
    if (choice != "auto") {
        return choice == "always";
    }
    const char* const refusal = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isTerminal && (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

TimeFormat FormatOf(const std::string& name) {
    if (name == "rfc3339") {
        return TimeFormat::Rfc3339;
    }
    if (name == "seconds") {
        return TimeFormat::Seconds;
    }
    return name == "nanoseconds" ? TimeFormat::Nanoseconds : TimeFormat::Auto;
}

}  // namespace

OutputStyle CommonOptions::Style(bool outputIsTerminal) const {
    if (quiet && verbose) {
        throw Misuse("--quiet and --verbose contradict each other");
    }
    OutputStyle style;
    style.json = json;
    style.quiet = quiet;
    style.verbose = verbose;
    style.colorsOutput = HasColors(color, outputIsTerminal);
    style.colorsMessages = HasColors(color, isatty(STDERR_FILENO) == 1);
    style.unicode = Terminal::ShowsUnicode();
    style.timeFormat = FormatOf(timeFormat);
    return style;
}

std::chrono::nanoseconds CommonOptions::Timeout() const {
    const std::chrono::nanoseconds limit(timeout.empty() ? 0 : DurationText::Parse(timeout));
    constexpr std::chrono::hours longest(24);
    if (!timeout.empty() && (limit < std::chrono::milliseconds(1) || limit > longest)) {
        throw Misuse("--timeout " + timeout + " is not within 1ms to 24h");
    }
    return limit;
}

}  // namespace Brantel::Tool
