#pragma once

#include <cstddef>
#include <cstdint>

namespace Brantel::Tests {

// What the operators new of this program have given out. A program that links CountedMemory.cpp
// uses them for everything, libraries included. Thread-safe.
class CountedMemory {
  public:
    // Bytes given out and not given back.
    static std::size_t Live();
    // The most that Live has been since the last ForgetPeak.
    static std::size_t Peak();
    static void ForgetPeak();

    // There is no memory for `count` allocations after `after` successful ones, among those of at
    // least `size` bytes.
    static void Fail(std::size_t size, std::size_t after = 0, std::size_t count = SIZE_MAX);
    // There is memory again. Returns how many allocations have failed.
    static std::size_t StopFailing();
};

}  // namespace Brantel::Tests
