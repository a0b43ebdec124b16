#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Brantel::Services {

class ArrivalRoom;

// Whether the other side moves a message fast enough. Asked only when the message does not move at
// once: in each stretch of the grace so many bytes must move as the rate makes of it. Who keeps
// room that others wait for must be faster: a tenth of that room in each fifth of the grace, all of
// it in two. Used by one thread.
class TransferPace {
  public:
    // Takes the place of an error number of the system, which are positive.
    static constexpr int tooSlow = -1;

    // No limit.
    TransferPace() = default;
    // `bytesPerSecond` 0: no limit. The grace is at least 1 ms.
    TransferPace(std::uint64_t bytesPerSecond, std::chrono::milliseconds grace);

    bool IsLimited() const { return bytesPerGrace > 0; }

    // The message keeps so many bytes of the room (borrowed) from others; 0: none.
    void KeepRoom(const ArrivalRoom* newRoom, std::uint64_t bytes) {
        room = newRoom;
        kept = bytes;
    }

    // What was asked when Keeps said no: "65536 bytes a second".
    std::string Asked() const;

    // How long a single wait may last before Keeps is asked, in milliseconds; -1: for ever.
    int LongestWait() const { return longestWait; }

    // A message begins: its first stretch begins with the next Keeps.
    void Restart() { running = awaited = false; }

    // After a wait in which so many bytes have moved. False: too slow.
    bool Keeps(std::size_t bytes) noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    std::uint64_t ShareOfRoom() const;
    bool KeepsForOthers(Clock::time_point now, std::size_t bytes) noexcept;

    // Constant after construction.
    std::uint64_t bytesPerSecond = 0;
    std::uint64_t bytesPerGrace = 0;
    std::chrono::milliseconds grace{0};
    int longestWait = -1;
    // The stretch that runs.
    bool running = false;
    Clock::time_point begin;
    std::uint64_t moved = 0;
    const ArrivalRoom* room = nullptr;
    std::uint64_t kept = 0;
    // The stretch that runs because others wait.
    bool awaited = false;
    Clock::time_point awaitedBegin;
    std::uint64_t awaitedMoved = 0;
};

}  // namespace Brantel::Services
