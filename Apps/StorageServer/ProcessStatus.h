#pragma once

#include <cstdint>

namespace Brantel::Server {

// What this process takes of the machine. A value; what the system did not tell is 0.
struct ProcessStatus {
    std::uint64_t residentBytes = 0;
    std::uint64_t openDescriptors = 0;
    std::uint64_t descriptorLimit = 0;
    std::uint64_t threads = 0;
    double processorSeconds = 0;  // of the user's and the system's work, since the start

    // Costs time for each open descriptor.
    static ProcessStatus Look();
};

}  // namespace Brantel::Server
