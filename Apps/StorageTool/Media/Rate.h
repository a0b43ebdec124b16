#pragma once

#include <cstdint>
#include <string>

namespace Brantel::Tool {

// How many there are in a second, as an exact fraction: 25, 29.97 or 30000/1001.
class Rate {
  public:
    static constexpr std::int64_t highestNumerator = 1'000'000'000'000'000;
    static constexpr std::int64_t highestDenominator = 1'000'000'000;

    // In lowest terms. Throws std::runtime_error for a number that is not above 0 or over a limit.
    Rate(std::int64_t numerator, std::int64_t denominator);

    // A whole number, one with up to nine decimals, or a fraction of two whole ones. Throws
    // std::runtime_error.
    static Rate Parse(const std::string& text);

    std::int64_t Numerator() const { return numerator; }
    std::int64_t Denominator() const { return denominator; }

    // "25" or "30000/1001".
    std::string Text() const;

  private:
    std::int64_t numerator;
    std::int64_t denominator;
};

}  // namespace Brantel::Tool
