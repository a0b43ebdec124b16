#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace Brantel::Tracks {

// Reads what a FieldWriter wrote. Throws std::runtime_error when the bytes end too early.
class FieldReader {
  public:
    explicit FieldReader(std::string_view bytes) : rest(bytes) {}

    template <typename Integer>
    Integer Get() {
        static_assert(std::is_integral_v<Integer>);
        const std::string_view bytes = Take(sizeof(Integer));
        std::uint64_t bits = 0;
        for (std::size_t index = 0; index < sizeof(Integer); ++index) {
            bits |= std::uint64_t{static_cast<unsigned char>(bytes[index])} << (8 * index);
        }
        return static_cast<Integer>(bits);
    }
    // Borrowed from the bytes that are read.
    std::string_view GetText() { return Take(Get<std::uint32_t>()); }

    bool IsAtEnd() const { return rest.empty(); }

  private:
    std::string_view Take(std::size_t count) {
        if (count > rest.size()) {
            throw std::runtime_error("a stored value ends " + std::to_string(count - rest.size()) +
                                     " bytes too early");
        }
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(count);
        return taken;
    }

    std::string_view rest;
};

}  // namespace Brantel::Tracks
