#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Brantel::Services {

// The most bytes that protobuf takes for a field's tag or length, and for a number.
constexpr std::size_t tagSizeLimit = 5;
constexpr std::size_t varintSizeLimit = 10;

// Reads a base-128 number of up to `limit` bytes. Returns its size; 0 when it is cut off by the end
// of the data or has no end within the limit.
inline std::size_t ReadVarint(const unsigned char* data, std::size_t size, std::size_t limit,
                              std::uint64_t& value) {
    value = 0;
    for (std::size_t i = 0; i < std::min(size, limit); ++i) {
        value |= static_cast<std::uint64_t>(data[i] & 0x7FU) << (7 * i);
        if (data[i] < 0x80U) {
            return i + 1;
        }
    }
    return 0;
}

}  // namespace Brantel::Services
