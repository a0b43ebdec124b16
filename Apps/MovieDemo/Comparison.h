#pragma once

#include <libTime/TimePoint.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Brantel::MovieDemo {

// Compares what a storage answered with what it should have answered, and counts. The first
// difference is thrown as std::runtime_error: "frame 17, image: byte 512 of 4000 is 58 instead of
// 59".
class Comparison {
  public:
    void Bytes(const std::string& what, const std::string& answer, const std::string& expected);
    void Numbers(const std::string& what, std::int64_t answer, std::int64_t expected);
    void TimePoints(const std::string& what, Time::TimePoint answer, Time::TimePoint expected);
    // `what` says what should hold.
    void Holds(const std::string& what, bool condition);

    std::uint64_t ComparedBytes() const { return bytes; }
    std::size_t ComparedAnswers() const { return answers; }

  private:
    std::uint64_t bytes = 0;
    std::size_t answers = 0;
};

}  // namespace Brantel::MovieDemo
