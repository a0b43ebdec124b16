#include "Comparison.h"

#include <algorithm>
#include <stdexcept>

namespace Brantel::MovieDemo {

namespace {

[[noreturn]] void Differ(const std::string& what, const std::string& answer,
                         const std::string& expected) {
    throw std::runtime_error(what + " is " + answer + " instead of " + expected);
}

std::string NumberOf(char byte) {
    return std::to_string(static_cast<unsigned char>(byte));
}

}  // namespace

void Comparison::Bytes(const std::string& what, const std::string& answer,
                       const std::string& expected) {
    if (answer.size() != expected.size()) {
        Differ(what + ": the size in bytes", std::to_string(answer.size()),
               std::to_string(expected.size()));
    }
    const auto [wrong, right] = std::mismatch(answer.begin(), answer.end(), expected.begin());
    if (wrong != answer.end()) {
        Differ(what + ": byte " + std::to_string(wrong - answer.begin()) + " of " +
                   std::to_string(answer.size()),
               NumberOf(*wrong), NumberOf(*right));
    }
    bytes += answer.size();
    ++answers;
}

void Comparison::Numbers(const std::string& what, std::int64_t answer, std::int64_t expected) {
    if (answer != expected) {
        Differ(what, std::to_string(answer), std::to_string(expected));
    }
    ++answers;
}

void Comparison::TimePoints(const std::string& what, Time::TimePoint answer,
                            Time::TimePoint expected) {
    if (answer != expected) {
        Differ(what, answer.ToString(), expected.ToString());
    }
    ++answers;
}

void Comparison::Holds(const std::string& what, bool condition) {
    if (!condition) {
        throw std::runtime_error("Does not hold: " + what);
    }
    ++answers;
}

}  // namespace Brantel::MovieDemo
