#pragma once

#include <libEngine/Distribution.h>
#include <libEngine/EngineCounters.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Brantel::Engine {

// Counts the flushes of all segments of a store. Thread-safe, without a lock.
class FlushMeter {
  public:
    // One that made so many writes safe.
    void Note(std::chrono::nanoseconds duration, std::uint64_t writes) noexcept {
        nanoseconds.Add(static_cast<std::uint64_t>(duration.count()));
        groups.Add(writes);
    }
    void NoteFailure() noexcept { failures.fetch_add(1, std::memory_order_relaxed); }

    EngineCounters Get() const noexcept {
        return {nanoseconds.Get(), groups.Get(), failures.load(std::memory_order_relaxed)};
    }

  private:
    DistributionCounter<EngineCounters::flushBounds.size()> nanoseconds{
        EngineCounters::flushBounds};
    DistributionCounter<EngineCounters::groupBounds.size()> groups{EngineCounters::groupBounds};
    std::atomic<std::uint64_t> failures = 0;
};

}  // namespace Brantel::Engine
