#include "OperationMetrics.h"

#include <algorithm>
#include <functional>
#include <thread>
#include <tuple>

namespace Brantel::Server {

using Outcome = OperationRecord::Outcome;

std::string_view OperationMetrics::NameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Done: return "done";
        case Outcome::Failed: return "failed";
        case Outcome::Denied: return "denied";
        case Outcome::Limited: return "limited";
    }
    return "unknown";
}

OperationMetrics::Slot& OperationMetrics::SlotOf(std::string_view operation) noexcept {
    const std::size_t first = std::hash<std::string_view>()(operation) % slots.size();
    for (std::size_t step = 0; step < slots.size(); ++step) {
        Slot& slot = slots[(first + step) % slots.size()];
        Slot::State state = slot.state.load(std::memory_order_acquire);
        if (state == Slot::Free &&
            slot.state.compare_exchange_strong(state, Slot::Naming, std::memory_order_acquire)) {
            slot.name = operation;
            slot.state.store(Slot::Named, std::memory_order_release);
            return slot;
        }
        // Once in a slot's life, for the moment that its name is set.
        while (slot.state.load(std::memory_order_acquire) != Slot::Named) {
            std::this_thread::yield();
        }
        if (slot.name == operation) {
            return slot;
        }
    }
    return others;
}

void OperationMetrics::OnOperation(const OperationRecord& record) noexcept {
    const auto nanoseconds = std::max<std::int64_t>(0, record.duration.count());
    SlotOf(record.operation)
        .counters[static_cast<std::size_t>(record.outcome)]
        .Add(static_cast<std::uint64_t>(nanoseconds));
    if (record.bytes == 0 || record.outcome != Outcome::Done) {
        return;
    }
    const bool isIn = record.kind == OperationRecord::Kind::Append;
    (isIn ? bytesIn : bytesOut).fetch_add(record.bytes, std::memory_order_relaxed);
}

OperationMetrics::Picture OperationMetrics::Get() const {
    Picture picture;
    const auto add = [&picture](const Slot& slot, std::string_view name) {
        for (std::size_t outcome = 0; outcome < outcomes; ++outcome) {
            Line line{name, static_cast<Outcome>(outcome), slot.counters[outcome].Get()};
            const std::uint64_t total = line.nanoseconds.GetTotal();
            if (total == 0) {
                continue;
            }
            picture.denied += line.outcome == Outcome::Denied ? total : 0;
            picture.lines.push_back(line);
        }
    };
    for (const Slot& slot : slots) {
        if (slot.state.load(std::memory_order_acquire) == Slot::Named) {
            add(slot, slot.name);
        }
    }
    add(others, "other");
    std::sort(picture.lines.begin(), picture.lines.end(), [](const Line& a, const Line& b) {
        return std::tie(a.operation, a.outcome) < std::tie(b.operation, b.outcome);
    });
    picture.bytesIn = bytesIn.load(std::memory_order_relaxed);
    picture.bytesOut = bytesOut.load(std::memory_order_relaxed);
    return picture;
}

}  // namespace Brantel::Server
