#include "Checksum.h"

#include <xxhash.h>

namespace Brantel::Engine {

std::uint64_t Checksum(std::string_view bytes) noexcept {
    return XXH3_64bits(bytes.data(), bytes.size());
}

}  // namespace Brantel::Engine
