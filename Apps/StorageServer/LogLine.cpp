#include "LogLine.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace Brantel::Server {

namespace {

struct LevelName {
    const char* name;
    const char* priority;  // of syslog
};

const LevelName& NameOf(LogLevel level) {
    static constexpr std::array names{LevelName{"error", "<3>"}, LevelName{"warning", "<4>"},
                                      LevelName{"info", "<6>"}, LevelName{"debug", "<7>"}};
    return names.at(static_cast<std::size_t>(level));
}

std::string Shorten(const std::string& text) {
    if (text.size() <= LogLine::textLimit) {
        return text;
    }
    return text.substr(0, LogLine::textLimit) + "...";
}

std::string TextOf(LogLine::Time time) {
    using std::chrono::milliseconds;
    const auto sinceEpoch = time.time_since_epoch();
    const auto whole = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const std::time_t seconds = whole.count();
    const auto rest = std::chrono::duration_cast<milliseconds>(sinceEpoch - whole).count();
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + size, text.size() - size, ".%03dZ", static_cast<int>(rest));
    return text.data();
}

double MillisecondsOf(const LogEvent& event) {
    return std::chrono::duration<double, std::milli>(event.duration).count();
}

std::string InText(const LogEvent& event) {
    std::string line;
    if (event.connectionId != 0) {
        line = "connection " + std::to_string(event.connectionId) + " from " +
               LogLine::Escape(Shorten(event.peer)) + ": ";
    }
    if (!event.operation.empty()) {
        constexpr std::size_t longest = 64;
        std::array<char, longest> duration{};
        std::snprintf(duration.data(), duration.size(), "%.3f ms", MillisecondsOf(event));
        line += LogLine::Escape(Shorten(event.operation));
        line += event.trackId >= 0 ? " of track " + std::to_string(event.trackId) : std::string();
        line += " " + event.outcome + " after " + duration.data();
        line += event.text.empty() ? "" : ": ";
    }
    return line + LogLine::Escape(Shorten(event.text));
}

std::string InJson(const LogEvent& event, LogLine::Time time) {
    nlohmann::ordered_json object{{"time", TextOf(time)}, {"level", NameOf(event.level).name}};
    if (!event.text.empty()) {
        object["text"] = Shorten(event.text);
    }
    if (event.connectionId != 0) {
        object["connection"] = event.connectionId;
        object["peer"] = Shorten(event.peer);
    }
    if (!event.operation.empty()) {
        object["operation"] = Shorten(event.operation);
        object["outcome"] = event.outcome;
        if (event.trackId >= 0) {
            object["track"] = event.trackId;
        }
        object["duration_ms"] = MillisecondsOf(event);
    }
    constexpr int onOneLine = -1;
    // Everything but ASCII is escaped, and a byte that is no UTF-8 is replaced.
    return object.dump(onOneLine, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

// How many bytes from `at` on are one character beyond ASCII that may be shown; 0: none.
std::size_t CharacterAt(std::string_view text, std::size_t at) {
    const auto byte = [&text, at](std::size_t i) {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
    };
    const auto follows = [&byte](std::size_t i) { return (byte(i) & 0xC0U) == 0x80U; };
    const unsigned first = byte(0);
    // Beyond these lie the second set of control characters, overlong forms and surrogates.
    if (first >= 0xC2 && first <= 0xDF && follows(1)) {
        return first == 0xC2 && byte(1) < 0xA0 ? 0 : 2;
    }
    if (first >= 0xE0 && first <= 0xEF && follows(1) && follows(2)) {
        const bool isOverlong = first == 0xE0 && byte(1) < 0xA0;
        const bool isSurrogate = first == 0xED && byte(1) >= 0xA0;
        return isOverlong || isSurrogate ? 0 : 3;
    }
    if (first >= 0xF0 && first <= 0xF4 && follows(1) && follows(2) && follows(3)) {
        const bool isOverlong = first == 0xF0 && byte(1) < 0x90;
        const bool isBeyond = first == 0xF4 && byte(1) >= 0x90;
        return isOverlong || isBeyond ? 0 : 4;
    }
    return 0;
}

std::string EscapeByte(char byte) {
    switch (byte) {
        case '\\': return "\\\\";
        case '\n': return "\\n";
        case '\r': return "\\r";
        case '\t': return "\\t";
        default: break;
    }
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned char>(byte));
    return text.data();
}

}  // namespace

std::string LogLine::Escape(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const char byte = text[i];
        if (byte >= ' ' && byte <= '~' && byte != '\\') {
            result += byte;
            ++i;
        } else if (const std::size_t size = CharacterAt(text, i); size > 0) {
            result += text.substr(i, size);
            i += size;
        } else {
            result += EscapeByte(byte);
            ++i;
        }
    }
    return result;
}

std::string LogLine::Format(const LogEvent& event, const Style& style, Time time) {
    std::string line = style.hasPriority ? NameOf(event.level).priority : "";
    if (style.format == LogOptions::Format::Json) {
        return line + InJson(event, time) + "\n";
    }
    if (!style.hasPriority) {
        line = TextOf(time) + " " + NameOf(event.level).name + ": ";
    }
    return line + InText(event) + "\n";
}

LogEvent LogLine::Repeated(LogLevel level, std::uint64_t times) {
    LogEvent event;
    event.level = level;
    event.text = "last line repeated " + std::to_string(times) + (times == 1 ? " time" : " times");
    return event;
}

LogEvent LogLine::Dropped(std::uint64_t lines) {
    LogEvent event;
    event.level = LogLevel::Warning;
    event.text = std::to_string(lines) + (lines == 1 ? " line" : " lines") +
                 " of the log were dropped: they could not be written";
    return event;
}

}  // namespace Brantel::Server
