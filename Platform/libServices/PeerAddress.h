#pragma once

#include <cstdint>
#include <string>

namespace Brantel::Services {

// Who is at the other end of an accepted connection.
struct PeerAddress {
    // What the connection came over.
    enum class Kind { Unix, Tcp };

    // What this one came over.
    Kind kind = Kind::Tcp;
    // Counts up from 1 over all addresses of one listener; never used twice.
    std::uint64_t connectionId = 0;
    // "192.0.2.7", also for an IPv4 peer of an IPv6 socket; empty for another IPv6 peer and on a
    // Unix-domain socket.
    std::string ipV4;
    // Whom the system vouches for at the other end of a Unix-domain socket: the user of the process
    // that connected. -1: unknown, as over TCP.
    std::int64_t user = -1;
    // The group of that process; -1: unknown.
    std::int64_t group = -1;
    // For people: "192.0.2.7:40312", "[2001:db8::7]:40312", "/run/storage.sock process 4711 user
    // 1000".
    std::string text;
};

}  // namespace Brantel::Services
