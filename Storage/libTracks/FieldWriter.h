#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace Brantel::Tracks {

// Writes the fields of a stored value one behind the other: integers little-endian in their own
// size, texts as a 4-byte length and their bytes.
class FieldWriter {
  public:
    // Appends to `out`, which is borrowed.
    explicit FieldWriter(std::string& out) : out(out) {}

    template <typename Integer>
    void Put(Integer value) {
        static_assert(std::is_integral_v<Integer>);
        std::array<char, sizeof(Integer)> bytes{};
        auto bits = static_cast<std::make_unsigned_t<Integer>>(value);
        for (char& byte : bytes) {
            byte = static_cast<char>(bits & 0xFFU);
            bits = static_cast<std::make_unsigned_t<Integer>>(std::uint64_t{bits} >> 8U);
        }
        out.append(bytes.data(), bytes.size());
    }
    void PutText(std::string_view text) {
        Put(static_cast<std::uint32_t>(text.size()));
        out.append(text);
    }

  private:
    std::string& out;
};

}  // namespace Brantel::Tracks
