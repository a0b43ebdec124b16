#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Brantel::MovieDemo {

// Counts frames and bytes and the time they took. Time passes between Start and Stop only, so that
// what is done with the frames in between (comparing, writing files) does not count.
class FrameMeter {
  public:
    void Start() { started = Clock::now(); }
    void Stop(std::uint64_t frameBytes) {
        elapsed += Clock::now() - started;
        bytes += frameBytes;
        ++frames;
    }

    std::size_t Frames() const { return frames; }
    std::uint64_t Bytes() const { return bytes; }
    // "7521 frames/s, 503.2 MB/s" (a MB is 1,000,000 bytes).
    std::string Text() const;

  private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point started;
    Clock::duration elapsed{0};
    std::uint64_t bytes = 0;
    std::size_t frames = 0;
};

}  // namespace Brantel::MovieDemo
