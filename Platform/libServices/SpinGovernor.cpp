#include "SpinGovernor.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace Brantel::Services {

namespace {

// The system's coarse clock: its tick of a few milliseconds is the slice in which active
// connections are counted, and reading it costs a fraction of a precise clock.
std::int64_t CurrentSlice() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    constexpr std::int64_t nanosecondsPerSlice = 4'000'000;
    constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
    return (now.tv_sec * nanosecondsPerSecond + now.tv_nsec) / nanosecondsPerSlice;
}

}  // namespace

SpinGovernor::SpinGovernor(std::chrono::nanoseconds budget, unsigned processors) noexcept
    : allowedSpinners(processors / 2), budgetNanoseconds(budget.count()) {}

unsigned SpinGovernor::OnlineProcessors() noexcept {
    const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<unsigned>(online) : 1;
}

SpinGovernor& SpinGovernor::ForProcess() {
    static SpinGovernor governor{clientBudget};
    return governor;
}

void SpinGovernor::SetBudget(std::chrono::nanoseconds budget) noexcept {
    budgetNanoseconds.store(budget.count(), std::memory_order_relaxed);
}

void SpinGovernor::CountActive(SpinMemory& memory) noexcept {
    const std::int64_t now = CurrentSlice();
    if (memory.slice == now) {
        return;
    }
    memory.slice = now;
    std::int64_t counted = currentSlice.load(std::memory_order_relaxed);
    if (counted != now &&
        currentSlice.compare_exchange_strong(counted, now, std::memory_order_relaxed)) {
        const std::uint32_t active = activeInSlice.exchange(0, std::memory_order_relaxed);
        activeBefore.store(counted + 1 == now ? active : 0, std::memory_order_relaxed);
    }
    activeInSlice.fetch_add(1, std::memory_order_relaxed);
}

bool SpinGovernor::Promises(SpinMemory& memory) noexcept {
    CountActive(memory);
    if (memory.pause > 0) {
        --memory.pause;
        return false;
    }
    return CurrentlyActive() <= allowedSpinners;
}

std::uint32_t SpinGovernor::CurrentlyActive() const noexcept {
    return std::max(activeInSlice.load(std::memory_order_relaxed),
                    activeBefore.load(std::memory_order_relaxed));
}

bool SpinGovernor::Enter() noexcept {
    if (spinners.fetch_add(1, std::memory_order_relaxed) < allowedSpinners) {
        return true;
    }
    spinners.fetch_sub(1, std::memory_order_relaxed);
    return false;
}

void SpinGovernor::Leave(SpinMemory& memory, bool paid) noexcept {
    spinners.fetch_sub(1, std::memory_order_relaxed);
    if (paid) {
        memory.penalty = std::max(1U, memory.penalty / 2);
    } else {
        memory.pause = memory.penalty;
        memory.penalty = std::min(memory.penalty * 2, highestPenalty);
    }
}

}  // namespace Brantel::Services
