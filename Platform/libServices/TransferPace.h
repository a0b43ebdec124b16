#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace Brantel::Services {

// Whether the other side moves a message fast enough. Asked only when the message does not move at
// once: in each stretch of the grace so many bytes must move as the rate makes of it. Used by one
// thread.
class TransferPace {
  public:
    // Takes the place of an error number of the system, which are positive.
    static constexpr int tooSlow = -1;

    // No limit.
    TransferPace() = default;
    // `bytesPerSecond` 0: no limit. The grace is at least 1 ms.
    TransferPace(std::uint64_t bytesPerSecond, std::chrono::milliseconds grace);

    bool IsLimited() const { return bytesPerGrace > 0; }
    std::uint64_t BytesPerSecond() const { return bytesPerSecond; }

    // How long a single wait may last before Keeps is asked, in milliseconds; -1: for ever.
    int LongestWait() const { return longestWait; }

    // A message begins: its first stretch begins with the next Keeps.
    void Restart() { running = false; }

    // After a wait in which so many bytes have moved. False: too slow.
    bool Keeps(std::size_t bytes) noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    // Constant after construction.
    std::uint64_t bytesPerSecond = 0;
    std::uint64_t bytesPerGrace = 0;
    std::chrono::milliseconds grace{0};
    int longestWait = -1;
    // The stretch that runs.
    bool running = false;
    Clock::time_point begin;
    std::uint64_t moved = 0;
};

}  // namespace Brantel::Services
