#pragma once

#include <cstdint>
#include <string>

namespace Brantel::Server {

// Lets the process have as many descriptors as the system allows it: each connection is one. What
// to tell the operator when they are too few for so many connections; empty when they are enough.
std::string RaiseDescriptorLimit(std::uint64_t connections);

}  // namespace Brantel::Server
