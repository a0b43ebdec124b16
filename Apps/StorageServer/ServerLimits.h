#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Brantel::Server {

// What one client, or all of them together, can take of the server. A value; what it says when it
// is made is the default.
struct ServerLimits {
    // The largest message in bytes, either way.
    std::uint64_t messageBytes = std::uint64_t{256} << 20U;
    // So many connections are served at once; one more is closed at once.
    std::uint64_t connections = 4096;
    // So many readers and writers, together, are open on one connection.
    std::uint64_t workersPerConnection = 1024;
    // So many bytes of large messages arrive at once, over all connections; what does not fit
    // waits. At least messageBytes.
    std::uint64_t bytesInFlight = std::uint64_t{512} << 20U;
    // A message arrives, and an answer is taken, at no less than so many bytes a second, after the
    // grace; 0: as slowly as the client likes.
    std::uint64_t transferRate = std::uint64_t{64} << 10U;
    std::uint64_t transferGraceMilliseconds = 10'000;
    // So many texts, byte strings and parts has one message, and so deep do the parts nest.
    std::uint64_t elements = 65'536;
    std::uint64_t depth = 8;
    // So many tracks or workers can be asked for at once.
    std::uint64_t idsPerRequest = 65'536;

    // How one of them is set.
    struct Setting {
        const char* name;  // as an option of the command line, without the dashes
        const char* text;  // what it limits
        const char* unit;  // BYTES: may have a unit as in 64KiB
        std::uint64_t ServerLimits::*value;
        std::uint64_t lowest;
        std::uint64_t highest;
    };
    static constexpr std::size_t count = 9;
    static const std::array<Setting, count> settings;

    // What no range of a single one says; empty: nothing.
    std::string FindContradiction() const;
};

// The depth of the deepest message of the protocol is 5; protobuf itself goes no deeper than 100.
inline constexpr std::array<ServerLimits::Setting, ServerLimits::count> ServerLimits::settings{{
    {"message-limit", "Bytes of the largest message", "BYTES", &ServerLimits::messageBytes,
     std::uint64_t{64} << 10U, std::uint64_t{1} << 30U},
    {"max-connections", "So many connections are served at once; one more is closed at once",
     "NUMBER", &ServerLimits::connections, 1, 1'000'000},
    {"max-workers", "So many readers and writers, together, are open on one connection", "NUMBER",
     &ServerLimits::workersPerConnection, 1, 1'000'000},
    {"bytes-in-flight",
     "Bytes of large messages that arrive at once, over all connections; more wait. At least "
     "--message-limit",
     "BYTES", &ServerLimits::bytesInFlight, std::uint64_t{64} << 10U, std::uint64_t{1} << 40U},
    {"transfer-rate",
     "A message arrives, and an answer is taken, at no less than so many bytes a second, or the "
     "connection is lost; 0: no limit",
     "BYTES", &ServerLimits::transferRate, 0, std::uint64_t{1} << 30U},
    {"transfer-grace", "Milliseconds until --transfer-rate holds", "MILLISECONDS",
     &ServerLimits::transferGraceMilliseconds, 1, 3'600'000},
    {"max-elements", "So many texts, byte strings and parts has one message", "NUMBER",
     &ServerLimits::elements, 32'768, 16'777'216},
    {"max-depth", "So deep do the parts of one message nest", "NUMBER", &ServerLimits::depth, 8,
     100},
    {"max-ids", "So many tracks or workers can be asked for at once", "NUMBER",
     &ServerLimits::idsPerRequest, 1, 16'777'216},
}};

inline std::string ServerLimits::FindContradiction() const {
    if (bytesInFlight >= messageBytes) {
        return {};
    }
    return "bytes-in-flight " + std::to_string(bytesInFlight) + " is below message-limit " +
           std::to_string(messageBytes) + ": a message of that size could never arrive";
}

}  // namespace Brantel::Server
