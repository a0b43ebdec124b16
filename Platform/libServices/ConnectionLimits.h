#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Brantel::Services {

// What the other side of a connection may take of this one, beside the longest message. A value;
// by default nothing is limited but what protobuf limits itself.
struct ConnectionLimits {
    // protobuf's own.
    static constexpr int highestDepth = 100;
    // Messages that a connection receives whole before it parses them have no more than this.
    static constexpr std::size_t lowestElements = 32'768;

    // Elements of one received message: what costs more memory parsed than sent. These are texts,
    // byte strings, parts, and whatever the message's type does not know. At least lowestElements.
    std::size_t elements = std::numeric_limits<std::size_t>::max();
    // So deep do the parts of a received message nest, 1 to highestDepth.
    int depth = highestDepth;
    // A message that has begun comes, and one that is sent is taken, at no less than so many bytes
    // a second, over each stretch of the grace; 0: as slowly as the other side likes. Between two
    // messages a connection may be silent for ever.
    std::uint64_t bytesPerSecond = 0;
    // The stretch over which that speed is looked at.
    std::chrono::milliseconds grace{10'000};
};

}  // namespace Brantel::Services
