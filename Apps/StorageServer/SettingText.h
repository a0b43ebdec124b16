#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Server {

// Values of settings as texts and back. What can't be read throws std::invalid_argument with the
// text and what is allowed.
class SettingText {
  public:
    // A range of whole numbers, both ends included.
    struct Range {
        std::uint64_t lowest = 0;
        std::uint64_t highest = 0;
    };

    // Decimal digits alone.
    static std::uint64_t ParseNumber(const std::string& text, const Range& range);
    // Bytes, also with a unit: 500MB, 2GiB.
    static std::uint64_t ParseSize(const std::string& text, const Range& range);
    // "true" or "false".
    static bool ParseFlag(const std::string& text);
    // An access mode of a file, 0 to 777, octal.
    static unsigned int ParseMode(const std::string& text);
    // The place of the text among the choices.
    static std::size_t ParseChoice(const std::string& text,
                                   const std::vector<std::string>& choices);

    // With the largest binary unit that divides it: "256MiB", "1000".
    static std::string OfSize(std::uint64_t bytes);
    // Three digits and more: "660".
    static std::string OfMode(unsigned int mode);
};

}  // namespace Brantel::Server
