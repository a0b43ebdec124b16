#include "Checksum.h"

#ifdef __x86_64__
// The same checksums, by the widest instructions that the processor has.
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

namespace Brantel::Engine {

std::uint64_t Checksum(std::string_view bytes) noexcept {
    return XXH3_64bits(bytes.data(), bytes.size());
}

}  // namespace Brantel::Engine
