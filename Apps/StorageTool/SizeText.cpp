#include "SizeText.h"

#include "ExitCodes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <limits>
#include <optional>

namespace Brantel::Tool {

namespace {

constexpr std::string_view prefixes = "kMGTPE";

[[noreturn]] void Refuse(std::string_view what, std::string_view text, std::string_view reason) {
    throw Misuse(std::string(what) + " " + std::string(text) + " " + std::string(reason));
}

char Lower(char character) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

std::string Lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char character) { return Lower(character); });
    return result;
}

// 0 without a prefix, 1 for kilo and so on.
int PowerOf(char prefix) {
    const std::string names = Lower(prefixes);
    return static_cast<int>(names.find(Lower(prefix)) + 1);
}

std::int64_t PowerOf(std::int64_t base, int exponent) {
    std::int64_t result = 1;
    for (int i = 0; i < exponent; ++i) {
        result *= base;
    }
    return result;
}

// What a number is multiplied with: a prefix, then nothing or "i", then one of the unit's names.
std::optional<std::int64_t> FindFactor(std::string_view unit, std::string_view name,
                                       bool nameMayMiss) {
    std::string rest = Lower(unit);
    std::int64_t factor = 1;
    if (rest != name && !rest.empty() && PowerOf(rest.front()) > 0) {
        const int exponent = PowerOf(rest.front());
        rest.erase(0, 1);
        constexpr std::int64_t decimal = 1000;
        constexpr std::int64_t binary = 1024;
        const bool isBinary = rest.starts_with('i');
        rest.erase(0, isBinary ? 1 : 0);
        factor = PowerOf(isBinary ? binary : decimal, exponent);
    }
    if (rest == name || (rest.empty() && nameMayMiss)) {
        return factor;
    }
    return std::nullopt;
}

// number * factor, exactly; throws when it is not whole or too large.
std::int64_t Multiply(std::string_view number, std::int64_t factor, std::string_view what,
                      std::string_view text) {
    const std::size_t point = std::min(number.find('.'), number.size());
    std::int64_t whole = 0;
    for (const char digit : number.substr(0, point)) {
        if (__builtin_mul_overflow(whole, 10, &whole) ||
            __builtin_add_overflow(whole, digit - '0', &whole)) {
            Refuse(what, text, "is over the limit of 9223372036854775807");
        }
    }
    // The fraction times the factor, digit by digit from the last one: (digit + rest) / 10.
    std::int64_t part = 0;
    if (point < number.size()) {
        std::string_view digits = number.substr(point + 1);
        digits = digits.substr(0, digits.find_last_not_of('0') + 1);
        constexpr std::size_t exactDigits = 18;
        std::int64_t scale = 1;
        std::int64_t value = 0;
        for (const char digit : digits.substr(0, exactDigits)) {
            scale *= 10;
            value = value * 10 + (digit - '0');
        }
        std::int64_t product = 0;
        if (digits.size() > exactDigits || __builtin_mul_overflow(value, factor, &product) ||
            product % scale != 0) {
            Refuse(what, text, "is not a whole number, or its fraction is too long");
        }
        part = product / scale;
    }
    if (__builtin_mul_overflow(whole, factor, &whole) ||
        __builtin_add_overflow(whole, part, &whole)) {
        Refuse(what, text, "is over the limit of 9223372036854775807");
    }
    return whole;
}

// The number in front: digits, perhaps a point and digits.
std::string_view NumberOf(std::string_view text) {
    const std::size_t end = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string_view number = text.substr(0, end);
    const bool isNumber = !number.empty() && number.front() != '.' && number.back() != '.' &&
                          std::count(number.begin(), number.end(), '.') <= 1;
    return isNumber ? number : std::string_view();
}

std::string Scaled(double value, double base, std::string_view suffixOfPrefix,
                   std::string_view unit) {
    std::size_t power = 0;
    constexpr double nearlyNext = 0.9995;
    while (value >= base * nearlyNext && power < prefixes.size()) {
        value /= base;
        ++power;
    }
    constexpr double oneDigit = 9.995;
    constexpr double twoDigits = 99.95;
    const int decimals = power == 0 || value >= twoDigits ? 0 : value < oneDigit ? 2 : 1;
    std::array<char, 32> number{};
    const int size = std::snprintf(number.data(), number.size(), "%.*f", decimals, value);
    std::string text(number.data(), static_cast<std::size_t>(size));
    text += " ";
    if (power > 0) {
        const char prefix = prefixes[power - 1];
        text += suffixOfPrefix.empty() || prefix != 'k' ? prefix : 'K';
        text += suffixOfPrefix;
    }
    return text.append(unit);
}

}  // namespace

std::int64_t SizeText::Parse(std::string_view text) {
    const std::string_view number = NumberOf(text);
    const std::optional<std::int64_t> factor =
        number.empty() ? std::nullopt : FindFactor(text.substr(number.size()), "b", true);
    if (!factor) {
        Refuse("Size", text, "is not a number of bytes as 4096, 500M, 1.5GiB or 2TiB");
    }
    return Multiply(number, *factor, "Size", text);
}

std::string SizeText::Print(std::int64_t bytes) {
    constexpr double binary = 1024;
    return Scaled(static_cast<double>(bytes), binary, "i", "B");
}

std::string SizeText::PrintRate(double bytesPerSecond) {
    constexpr double binary = 1024;
    return Scaled(bytesPerSecond, binary, "i", "B/s");
}

std::int64_t RateText::Parse(std::string_view text) {
    const std::string_view number = NumberOf(text);
    std::string_view unit = text.substr(number.size());
    if (unit.ends_with("/s")) {
        unit.remove_suffix(2);
    }
    std::optional<std::int64_t> factor;
    if (!number.empty()) {
        factor = FindFactor(unit, "bit", false);
        const bool isBytes = unit.ends_with('B');
        if (!factor && isBytes) {
            constexpr std::int64_t bitsPerByte = 8;
            factor = FindFactor(unit, "b", false);
            std::int64_t bits = 0;
            if (factor && !__builtin_mul_overflow(*factor, bitsPerByte, &bits)) {
                factor = bits;
            } else {
                factor.reset();
            }
        }
    }
    if (!factor) {
        Refuse("Rate", text, "is not a data rate as 8Mbit/s, 500kbit/s, 1.5MB/s or 25MiB/s");
    }
    return Multiply(number, *factor, "Rate", text);
}

std::string RateText::Print(double bitsPerSecond) {
    constexpr double decimal = 1000;
    return Scaled(bitsPerSecond, decimal, "", "bit/s");
}

}  // namespace Brantel::Tool
