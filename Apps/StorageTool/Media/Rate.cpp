#include "Media/Rate.h"

#include <charconv>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace Brantel::Tool {

namespace {

std::optional<std::int64_t> WholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || text.empty() || text.front() == '-') {
        return std::nullopt;
    }
    return number;
}

}  // namespace

Rate::Rate(std::int64_t numerator, std::int64_t denominator)
    : numerator(numerator), denominator(denominator) {
    if (numerator <= 0 || denominator <= 0) {
        throw std::runtime_error("A rate must be above 0");
    }
    const std::int64_t divisor = std::gcd(numerator, denominator);
    this->numerator /= divisor;
    this->denominator /= divisor;
    if (this->numerator > highestNumerator || this->denominator > highestDenominator) {
        throw std::runtime_error("The rate " + Text() + " is over the limit of " +
                                 std::to_string(highestNumerator) + "/" +
                                 std::to_string(highestDenominator));
    }
}

Rate Rate::Parse(const std::string& text) {
    constexpr std::size_t mostDecimals = 9;
    const std::string_view view = text;
    const std::size_t slash = view.find('/');
    const std::size_t point = view.find('.');
    std::optional<std::int64_t> numerator;
    std::optional<std::int64_t> denominator = 1;
    if (slash != std::string_view::npos) {
        numerator = WholeNumber(view.substr(0, slash));
        denominator = WholeNumber(view.substr(slash + 1));
    } else if (point != std::string_view::npos) {
        const std::string_view decimals = view.substr(point + 1);
        if (!decimals.empty() && decimals.size() <= mostDecimals) {
            numerator = WholeNumber(std::string(view.substr(0, point)) + std::string(decimals));
        }
        for (std::size_t i = 0; i < decimals.size() && i < mostDecimals; ++i) {
            denominator = *denominator * 10;
        }
    } else {
        numerator = WholeNumber(view);
    }
    if (!numerator || !denominator || *numerator == 0 || *denominator == 0) {
        throw std::runtime_error("'" + text +
                                 "' is no rate: a number above 0 such as 25, 29.97 or 30000/1001");
    }
    return {*numerator, *denominator};
}

std::string Rate::Text() const {
    return denominator == 1 ? std::to_string(numerator)
                            : std::to_string(numerator) + "/" + std::to_string(denominator);
}

}  // namespace Brantel::Tool
