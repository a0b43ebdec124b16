#pragma once

#include "LogOptions.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Brantel::Server {

// Something that is logged. A value.
struct LogEvent {
    LogLevel level = LogLevel::Info;
    // For people; for a call that failed, why.
    std::string text;
    // 0: of no connection.
    std::uint64_t connectionId = 0;
    std::string peer;
    // Of a call; empty: it is none.
    std::string operation;
    std::string outcome;
    std::int64_t trackId = -1;  // -1: none
    std::chrono::nanoseconds duration{0};

    // Whether it says the same, whenever that was and however long it took.
    bool IsLike(const LogEvent& other) const {
        return level == other.level && connectionId == other.connectionId &&
               trackId == other.trackId && operation == other.operation &&
               outcome == other.outcome && text == other.text && peer == other.peer;
    }
};

}  // namespace Brantel::Server
