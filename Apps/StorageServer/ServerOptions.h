#pragma once

#include "ListenAddress.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Server {

// What the command line chooses. A value.
struct ServerOptions {
    // At least one.
    std::vector<ListenAddress> listen;
    // The access mode of the Unix-domain sockets' files, 0 to 0777.
    unsigned int socketMode = 0660;
    // One of the names that the parser was given.
    std::string engine;
    // How many bytes the tracks can reserve, all together; at least lowestCapacity.
    std::uint64_t capacity = std::uint64_t{1} << 30U;
    // The largest message in bytes, either way.
    std::size_t messageLimit = std::size_t{256} << 20U;
    // So many connections are served at once.
    std::size_t maximumConnections = 10'000;
    // A descriptor that gets the addresses and is then closed, once the server serves; -1: none.
    int readyDescriptor = -1;

    static constexpr std::uint64_t lowestCapacity = std::uint64_t{1} << 20U;
};

}  // namespace Brantel::Server
