#pragma once

#include <cstdint>
#include <string_view>

namespace Brantel::Engine {

// The checksum that guards stored bytes: XXH3, 64 bits, seed 0.
std::uint64_t Checksum(std::string_view bytes) noexcept;

}  // namespace Brantel::Engine
