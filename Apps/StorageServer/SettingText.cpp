#include "SettingText.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace Brantel::Server {

namespace {

constexpr unsigned int highestMode = 0777;

[[noreturn]] void RefuseRange(const std::string& text, const SettingText::Range& range) {
    throw std::invalid_argument(text + " is not within " + std::to_string(range.lowest) + " to " +
                                std::to_string(range.highest));
}

}  // namespace

std::uint64_t SettingText::ParseNumber(const std::string& text, const Range& range) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value < range.lowest || value > range.highest) {
        RefuseRange(text, range);
    }
    return value;
}

std::uint64_t SettingText::ParseSize(const std::string& text, const Range& range) {
    std::string bytes = text;
    try {
        const std::string error = CLI::AsSizeValue(true)(bytes);
        if (!error.empty()) {
            throw std::invalid_argument(text + " is no number of bytes: " + error);
        }
    } catch (const CLI::Error& error) {
        throw std::invalid_argument(text + " is no number of bytes: " + error.what());
    }
    try {
        return ParseNumber(bytes, range);
    } catch (const std::invalid_argument&) {
        RefuseRange(text, range);
    }
}

bool SettingText::ParseFlag(const std::string& text) {
    if (text != "true" && text != "false") {
        throw std::invalid_argument(text + " is neither true nor false");
    }
    return text == "true";
}

unsigned int SettingText::ParseMode(const std::string& text) {
    constexpr std::size_t longest = 4;
    constexpr int octal = 8;
    unsigned int mode = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, mode, octal);
    if (error != std::errc() || rest != end || text.size() > longest || mode > highestMode) {
        throw std::invalid_argument("Mode " + text + " is not an octal number from 0 to 777");
    }
    return mode;
}

std::size_t SettingText::ParseChoice(const std::string& text,
                                     const std::vector<std::string>& choices) {
    const auto found = std::find(choices.begin(), choices.end(), text);
    if (found == choices.end()) {
        std::string all;
        for (const std::string& choice : choices) {
            all += (all.empty() ? "" : ", ") + choice;
        }
        throw std::invalid_argument(text + " is none of " + all);
    }
    return static_cast<std::size_t>(found - choices.begin());
}

std::string SettingText::OfSize(std::uint64_t bytes) {
    constexpr std::array units{"", "KiB", "MiB", "GiB", "TiB", "PiB"};
    constexpr std::uint64_t step = 1024;
    std::size_t unit = 0;
    while (bytes > 0 && bytes % step == 0 && unit + 1 < units.size()) {
        bytes /= step;
        ++unit;
    }
    return std::to_string(bytes) + units.at(unit);
}

std::string SettingText::OfMode(unsigned int mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%03o", mode & highestMode);
    return text.data();
}

}  // namespace Brantel::Server
