#include "DurationText.h"

#include "ExitCodes.h"

#include <array>
#include <cstdio>
#include <limits>

namespace Brantel::Tool {

namespace {

struct Unit {
    std::string_view name;
    std::int64_t nanoseconds;
};

constexpr std::int64_t second = 1'000'000'000;
// The larger ones first; names that begin another name after it.
constexpr std::array units{
    Unit{"w", 604'800 * second}, Unit{"d", 86'400 * second}, Unit{"h", 3'600 * second},
    Unit{"ms", 1'000'000},       Unit{"m", 60 * second},     Unit{"s", second},
    Unit{"us", 1'000},           Unit{"µs", 1'000},          Unit{"ns", 1},
};

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

std::string_view TakeDigits(std::string_view& text) {
    std::size_t count = 0;
    while (count < text.size() && IsDigit(text[count])) {
        ++count;
    }
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

const Unit* TakeUnit(std::string_view& text) {
    for (const Unit& unit : units) {
        const std::string_view rest =
            text.starts_with(unit.name) ? text.substr(unit.name.size()) : std::string_view("x");
        if (rest.empty() || IsDigit(rest.front())) {
            text = rest;
            return &unit;
        }
    }
    return nullptr;
}

[[noreturn]] void RefuseSize(std::string_view text) {
    throw Misuse("Duration " + std::string(text) + " is over the limit of " +
                 std::to_string(std::numeric_limits<std::int64_t>::max()) + " ns");
}

// Adds digits.fraction units; false: not a whole number of nanoseconds.
bool Add(std::int64_t& sum, std::string_view digits, std::string_view fraction, const Unit& unit,
         std::string_view text) {
    std::int64_t whole = 0;
    for (const char digit : digits) {
        if (__builtin_mul_overflow(whole, 10, &whole) ||
            __builtin_add_overflow(whole, digit - '0', &whole)) {
            RefuseSize(text);
        }
    }
    std::int64_t part = 0;
    std::int64_t scale = unit.nanoseconds;
    bool isExact = true;
    for (const char digit : fraction) {
        isExact = isExact && scale % 10 == 0;
        if (digit != '0' && !isExact) {
            return false;
        }
        scale /= 10;
        part += (digit - '0') * scale;
    }
    if (__builtin_mul_overflow(whole, unit.nanoseconds, &whole) ||
        __builtin_add_overflow(whole, part, &whole) || __builtin_add_overflow(sum, whole, &sum)) {
        RefuseSize(text);
    }
    return true;
}

std::string WithoutTrailingZeros(std::string fraction) {
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return fraction;
}

std::string Pair(std::int64_t value, std::int64_t large, const char* largeName, std::int64_t small,
                 const char* smallName) {
    const std::int64_t count = value / large;
    const std::int64_t rest = value % large / small;
    std::string text = std::to_string(count) + " " + largeName;
    return rest == 0 ? text : text + " " + std::to_string(rest) + " " + smallName;
}

std::string ThreeDigits(double value) {
    constexpr double oneDigit = 9.995;
    constexpr double twoDigits = 99.95;
    const int decimals = value < oneDigit ? 2 : value < twoDigits ? 1 : 0;
    std::array<char, 64> buffer{};
    const int size = std::snprintf(buffer.data(), buffer.size(), "%.*f", decimals, value);
    return {buffer.data(), static_cast<std::size_t>(size)};
}

}  // namespace

std::optional<std::int64_t> DurationText::TryParse(std::string_view text) {
    std::string_view rest = text;
    std::int64_t sum = 0;
    std::int64_t last = std::numeric_limits<std::int64_t>::max();
    do {
        const std::string_view digits = TakeDigits(rest);
        std::string_view fraction;
        if (rest.starts_with('.')) {
            rest.remove_prefix(1);
            fraction = TakeDigits(rest);
            if (fraction.empty()) {
                return std::nullopt;
            }
        }
        const Unit* const unit = digits.empty() ? nullptr : TakeUnit(rest);
        if (unit == nullptr || unit->nanoseconds >= last) {
            return std::nullopt;
        }
        last = unit->nanoseconds;
        if (!Add(sum, digits, fraction, *unit, text)) {
            throw Misuse("Duration " + std::string(text) + " is not a whole number of nanoseconds");
        }
    } while (!rest.empty());
    return sum;
}

std::int64_t DurationText::Parse(std::string_view text) {
    const std::optional<std::int64_t> duration = TryParse(text);
    if (!duration) {
        throw Misuse("Duration " + std::string(text) +
                     " is not made of numbers and units w, d, h, m, s, ms, us, ns, as in 1h30m");
    }
    return *duration;
}

std::string DurationText::Print(std::int64_t nanoseconds) {
    if (nanoseconds == 0) {
        return "0s";
    }
    // The bits of the absolute value: that of the lowest number has no signed form.
    auto rest = static_cast<std::uint64_t>(nanoseconds);
    std::string text;
    if (nanoseconds < 0) {
        text = "-";
        rest = 0 - rest;
    }
    for (const Unit& unit : {units[1], units[2], units[4]}) {
        const auto size = static_cast<std::uint64_t>(unit.nanoseconds);
        if (rest >= size) {
            text += std::to_string(rest / size) + std::string(unit.name);
            rest %= size;
        }
    }
    if (rest > 0) {
        constexpr auto oneSecond = static_cast<std::uint64_t>(second);
        text += std::to_string(rest / oneSecond);
        if (rest % oneSecond != 0) {
            const std::string digits = std::to_string(oneSecond + rest % oneSecond).substr(1);
            text += "." + WithoutTrailingZeros(digits);
        }
        text += "s";
    }
    return text;
}

std::string DurationText::Round(std::int64_t nanoseconds) {
    constexpr std::int64_t minute = 60 * second;
    constexpr std::int64_t hour = 60 * minute;
    constexpr std::int64_t day = 24 * hour;
    if (nanoseconds < 0) {
        const std::int64_t positive = nanoseconds == std::numeric_limits<std::int64_t>::min()
                                          ? std::numeric_limits<std::int64_t>::max()
                                          : -nanoseconds;
        return "-" + Round(positive);
    }
    if (nanoseconds >= day) {
        return Pair(nanoseconds, day, "d", hour, "h");
    }
    if (nanoseconds >= hour) {
        return Pair(nanoseconds, hour, "h", minute, "min");
    }
    if (nanoseconds >= minute) {
        return Pair(nanoseconds, minute, "min", second, "s");
    }
    const auto value = static_cast<double>(nanoseconds);
    if (nanoseconds >= second) {
        return ThreeDigits(value / static_cast<double>(second)) + " s";
    }
    constexpr double thousand = 1e3;
    if (value >= thousand * thousand) {
        return ThreeDigits(value / thousand / thousand) + " ms";
    }
    if (value >= thousand) {
        return ThreeDigits(value / thousand) + " us";
    }
    return std::to_string(nanoseconds) + (nanoseconds == 0 ? " s" : " ns");
}

}  // namespace Brantel::Tool
