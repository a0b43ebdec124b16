#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Brantel::Services {

// What one connection remembers about spinning. Used by the connection's receiving thread alone.
struct SpinMemory {
    std::uint32_t pause = 0;    // this many waits block at once
    std::uint32_t penalty = 1;  // the pause after the next spin that does not pay
    std::int64_t slice = -1;  // the last slice of time in which this connection was counted active
};

// Decides whether a connection that waits for its peer may poll for a moment before it blocks.
// Waking a blocked thread on another processor costs several times what a small call does, so
// polling pays when the answer is near; it harms when it takes a processor that somebody else could
// use. So at most one connection (half of the processors on larger machines) polls at a time, only
// while no more than that many are active, never on a machine with one processor, and each
// connection learns from polls that did not pay: that is what keeps two ends that share one of
// several processors from robbing each other.
//
// One governor serves all clients of a process, a listener owns one for the connections it
// accepted. Thread-safe.
class SpinGovernor {
  public:
    // A server's end: long enough for a client that calls again at once, short beside a time slice.
    static constexpr std::chrono::microseconds defaultBudget{30};
    // A client's end: long enough for the other side to copy a message of 1 MiB once more.
    static constexpr std::chrono::microseconds clientBudget{100};

    // `budget` is the longest time that one wait polls; 0 turns polling off.
    // `processors`: those of the machine.
    explicit SpinGovernor(std::chrono::nanoseconds budget = defaultBudget,
                          unsigned processors = OnlineProcessors()) noexcept;

    // How many processors of this machine are online, at least 1.
    static unsigned OnlineProcessors() noexcept;

    // The governor of every connection that is made without one: the processors are shared by the
    // whole process, and so is what limits their use. Its budget is clientBudget.
    static SpinGovernor& ForProcess();

    // Changes the longest time that one wait polls, from the next wait on; 0 turns polling off.
    void SetBudget(std::chrono::nanoseconds budget) noexcept;
    // The longest time that one wait polls; that for the answer to a large message may add 2 ms.
    std::chrono::nanoseconds Budget() const noexcept {
        return std::chrono::nanoseconds(budgetNanoseconds.load(std::memory_order_relaxed));
    }

    // Called once before each wait: counts the connection as active. False: block at once.
    bool MayPoll(SpinMemory& memory) noexcept {
        return budgetNanoseconds.load(std::memory_order_relaxed) > 0 && Promises(memory);
    }

    // Whether more connections are active than `connections`; counts this one as active.
    bool IsCrowd(SpinMemory& memory, std::uint32_t connections) noexcept {
        CountActive(memory);
        if (CurrentlyActive() <= connections) {
            return false;
        }
        crowdedSlice.store(memory.slice, std::memory_order_relaxed);
        return true;
    }

    // Whether IsCrowd was true less than about 64 ms ago, for any connection; counts this one, too.
    // A processor that was away for a moment does not end a crowd.
    bool WasCrowd(SpinMemory& memory, std::uint32_t connections) noexcept {
        return IsCrowd(memory, connections) ||
               memory.slice - crowdedSlice.load(std::memory_order_relaxed) <= crowdSlices;
    }

    // Takes a place among those that poll, for Budget() at most. False: none is free, block. After
    // true the caller calls Leave.
    bool Enter() noexcept;

    // `paid`: the data came in about the time that was to be polled.
    void Leave(SpinMemory& memory, bool paid) noexcept;

  private:
    static constexpr std::uint32_t highestPenalty = 4096;
    static constexpr std::int64_t crowdSlices = 16;

    bool Promises(SpinMemory& memory) noexcept;
    void CountActive(SpinMemory& memory) noexcept;
    std::uint32_t CurrentlyActive() const noexcept;

    const std::uint32_t allowedSpinners;
    // All synchronised by themselves; they are estimates that steer, and guard nothing.
    std::atomic<std::int64_t> budgetNanoseconds;
    std::atomic<std::int64_t> currentSlice{0};
    std::atomic<std::uint32_t> activeInSlice{0};
    std::atomic<std::uint32_t> activeBefore{0};
    std::atomic<std::int64_t> crowdedSlice{-crowdSlices - 1};
    std::atomic<std::uint32_t> spinners{0};
};

}  // namespace Brantel::Services
