#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Brantel::Tracks {

// What the storage knows of the connection that a call came on.
struct ClientConnection {
    std::int64_t id = 0;
    // As text; empty for a peer without an IPv4 address.
    std::string clientIpV4Address;
    // Asked a few times a second, on the waiting thread, while a call waits: whether the client is
    // gone, so that nobody will read the answer. Must be quick.
    std::function<bool()> isGone = [] { return false; };
};

}  // namespace Brantel::Tracks
