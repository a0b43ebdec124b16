#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace Brantel::Tests {

// Ends the process when it does not hold, which is what a fuzzer takes for a finding.
inline void Require(bool holds, std::string_view what) {
    if (!holds) {
        std::cerr << "Does not hold: " << what << std::endl;
        std::abort();
    }
}

// The bytes of one input, read from the front; zeros behind their end.
class FuzzInput {
  public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size) {}

    bool AtEnd() const { return rest.empty(); }
    std::uint8_t Byte() { return static_cast<std::uint8_t>(AtEnd() ? 0 : Bytes(1)[0]); }
    // Two bytes, the lower one first.
    std::size_t Short() {
        const std::size_t low = Byte();
        return low + std::size_t{256} * Byte();
    }
    // As many of `size` bytes as there are.
    std::string_view Bytes(std::size_t size) {
        const std::string_view bytes = rest.substr(0, size);
        rest.remove_prefix(bytes.size());
        return bytes;
    }

  private:
    std::string_view rest;
};

}  // namespace Brantel::Tests
