#pragma once

#include <cstddef>
#include <cstdint>

namespace Brantel::Services {

// When the thread of a connection need not wait for the next message: the connection then waits
// with many others on one thread.
struct CrowdRule {
    // Whether a whole message is served in a moment, with nothing to wait for, and has an answer of
    // less than 16 KiB. Several threads at once.
    using IsQuick = bool (*)(const unsigned char* message, std::size_t size);

    // Null: no thread leaves its connection.
    IsQuick isQuick = nullptr;
    // It is a crowd while more connections than these are active.
    std::uint32_t activeConnections = 0;
};

}  // namespace Brantel::Services
