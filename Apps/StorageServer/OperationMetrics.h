#pragma once

#include "IOperationObserver.h"

#include <libEngine/Distribution.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Brantel::Server {

// Counts the calls of all clients by operation and outcome, how long they took, and the payload
// that those brought and took that were done. Nothing is locked or allocated on the way of a call.
// Thread-safe.
class OperationMetrics : public IOperationObserver {
  public:
    // Upper bounds of the times in nanoseconds: 10 us to 60 s.
    static constexpr std::array<std::uint64_t, 16> bounds{
        10'000,      25'000,        50'000,         100'000,       250'000,     1'000'000,
        2'500'000,   5'000'000,     10'000'000,     25'000'000,    100'000'000, 250'000'000,
        500'000'000, 1'000'000'000, 10'000'000'000, 60'000'000'000};
    // So many operations are told apart; further names are counted together as "other".
    static constexpr std::size_t operationLimit = 64;

    struct Line {
        std::string_view operation;
        OperationRecord::Outcome outcome = OperationRecord::Outcome::Done;
        Engine::Distribution<bounds.size()> nanoseconds;
    };
    struct Picture {
        std::vector<Line> lines;  // of what has occurred, by operation
        std::uint64_t bytesIn = 0;
        std::uint64_t bytesOut = 0;
        std::uint64_t denied = 0;
    };

    OperationMetrics() = default;
    OperationMetrics(const OperationMetrics&) = delete;
    OperationMetrics& operator=(const OperationMetrics&) = delete;

    void OnOperation(const OperationRecord& record) noexcept override;
    Picture Get() const;

    static std::string_view NameOf(OperationRecord::Outcome outcome);

  private:
    static constexpr std::size_t outcomes = 4;
    static constexpr std::size_t cacheLine = 64;
    using Counter = Engine::DistributionCounter<bounds.size()>;

    // Belongs to the first operation that takes it, for ever.
    struct alignas(cacheLine) Slot {
        enum State : std::uint8_t { Free, Naming, Named };
        std::atomic<State> state = Free;
        std::string_view name;  // constant once Named
        std::array<Counter, outcomes> counters{Counter(bounds), Counter(bounds), Counter(bounds),
                                               Counter(bounds)};
    };

    Slot& SlotOf(std::string_view operation) noexcept;

    std::array<Slot, operationLimit> slots;
    Slot others;
    std::atomic<std::uint64_t> bytesIn = 0;
    std::atomic<std::uint64_t> bytesOut = 0;
};

}  // namespace Brantel::Server
