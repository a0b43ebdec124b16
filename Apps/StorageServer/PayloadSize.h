#pragma once

#include <CommonMessages.pb.h>

#include <cstdint>

namespace Brantel::Server {

// The bytes of a chunk that are an application's own: the values of its properties and data blocks.
inline std::uint64_t PayloadSizeOf(const Protocol::Chunk& chunk) {
    std::uint64_t bytes = 0;
    for (const auto& property : chunk.properties().items()) {
        bytes += property.value().size();
    }
    for (const auto& block : chunk.data().items()) {
        bytes += block.value().size();
    }
    return bytes;
}

}  // namespace Brantel::Server
