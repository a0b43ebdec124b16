#pragma once

#include <cstdint>
#include <string>

namespace Brantel::Server {

// Each level is logged together with those before it.
enum class LogLevel : std::uint8_t { Error, Warning, Info, Debug };

// How the server says what happens. A value.
struct LogOptions {
    enum class Format : std::uint8_t { Text, Json };
    // Whether a line begins with "<4>", by which the journal knows its priority.
    enum class Priority : std::uint8_t { Auto, Always, Never };

    Format format = Format::Text;
    LogLevel level = LogLevel::Info;
    Priority priority = Priority::Auto;
    // The file that tells who changed what; empty: the log does.
    std::string auditFile;
};

}  // namespace Brantel::Server
