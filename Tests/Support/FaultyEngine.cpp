#include "Support/FaultyEngine.h"

#include <type_traits>
#include <utility>

namespace Brantel::Engine {

void FaultyEngine::Inject(Call call, Fault fault, std::uint64_t n, std::uint64_t times,
                          EngineError::Kind kind) {
    const std::lock_guard lock(mutex);
    Operation& operation = operations.at(static_cast<std::size_t>(call));
    const std::uint64_t from = operation.calls + n;
    operation.rules.push_back(Rule{fault, from, times == 0 ? UINT64_MAX : from + times, kind});
}

void FaultyEngine::SetHook(Call call, std::function<void()> hook) {
    const std::lock_guard lock(mutex);
    operations.at(static_cast<std::size_t>(call)).hook = std::move(hook);
}

void FaultyEngine::Heal() {
    const std::lock_guard lock(mutex);
    for (Operation& operation : operations) {
        operation.rules.clear();
        operation.hook = nullptr;
    }
}

std::uint64_t FaultyEngine::CountCalls(Call call) {
    const std::lock_guard lock(mutex);
    return operations.at(static_cast<std::size_t>(call)).calls;
}

std::optional<FaultyEngine::Rule> FaultyEngine::Enter(Call call) {
    std::function<void()> hook;
    std::optional<Rule> found;
    {
        const std::lock_guard lock(mutex);
        Operation& operation = operations.at(static_cast<std::size_t>(call));
        const std::uint64_t number = ++operation.calls;
        for (const Rule& rule : operation.rules) {
            if (rule.from <= number && number < rule.to) {
                found = rule;
            }
        }
        hook = operation.hook;
    }
    if (hook) {
        hook();
    }
    return found;
}

void FaultyEngine::Throw(Call call, const Rule& rule) {
    throw EngineError(rule.kind, "injected fault in call " +
                                     std::to_string(static_cast<unsigned>(call)) +
                                     (rule.fault == Fault::FailAfter ? " after it" : " before it"));
}

template <typename Action>
auto FaultyEngine::Run(Call call, Action action) {
    const std::optional<Rule> rule = Enter(call);
    if (rule && rule->fault == Fault::FailBefore) {
        Throw(call, *rule);
    }
    if constexpr (std::is_void_v<decltype(action())>) {
        if (rule && rule->fault == Fault::Lose) {
            return;
        }
        action();
        if (rule) {
            Throw(call, *rule);
        }
    } else {
        auto result = action();
        if (rule) {
            Throw(call, *rule);
        }
        return result;
    }
}

std::optional<Record> FaultyEngine::ReadRecord(const std::string& key) {
    return Run(Call::ReadRecord, [&] { return inner.ReadRecord(key); });
}

bool FaultyEngine::WriteRecords(std::span<const RecordChange> changes) {
    return Run(Call::WriteRecords, [&] { return inner.WriteRecords(changes); });
}

std::vector<Record> FaultyEngine::ScanRecords(const std::string& prefix) {
    return Run(Call::ScanRecords, [&] { return inner.ScanRecords(prefix); });
}

void FaultyEngine::Reserve(const Reservation& reservation, IProgress& progress) {
    Run(Call::Reserve, [&] { inner.Reserve(reservation, progress); });
}

void FaultyEngine::Release(TrackId track, IProgress& progress) {
    Run(Call::Release, [&] { inner.Release(track, progress); });
}

std::vector<Reservation> FaultyEngine::ListReservations() {
    return inner.ListReservations();
}

Space FaultyEngine::GetSpace() {
    return Run(Call::GetSpace, [&] { return inner.GetSpace(); });
}

void FaultyEngine::CreateSegment(const SegmentId& id, Epoch epoch) {
    Run(Call::CreateSegment, [&] { inner.CreateSegment(id, epoch); });
}

std::vector<SegmentInfo> FaultyEngine::ListSegments(TrackId track) {
    return Run(Call::ListSegments, [&] { return inner.ListSegments(track); });
}

SegmentInfo FaultyEngine::Claim(const SegmentId& id, Epoch epoch) {
    return Run(Call::Claim, [&] { return inner.Claim(id, epoch); });
}

void FaultyEngine::Append(const SegmentId& id, Epoch epoch, const ChunkEntry& entry,
                          std::span<const std::string_view> parts, const Durability& durability) {
    {
        const std::lock_guard lock(mutex);
        if (closed.contains(id)) {
            throw EngineError(EngineError::Kind::Closed, "an append failed before");
        }
    }
    try {
        Run(Call::Append, [&] { inner.Append(id, epoch, entry, parts, durability); });
    } catch (const EngineError& error) {
        if (error.GetKind() == EngineError::Kind::Io ||
            error.GetKind() == EngineError::Kind::Damaged) {
            const std::lock_guard lock(mutex);
            closed.insert(id);
        }
        throw;
    }
}

void FaultyEngine::Flush(const SegmentId& id) {
    Run(Call::Flush, [&] { inner.Flush(id); });
}

void FaultyEngine::Seal(const SegmentId& id, Epoch epoch, std::uint64_t count) {
    Run(Call::Seal, [&] { inner.Seal(id, epoch, count); });
}

std::vector<ChunkEntry> FaultyEngine::ReadEntries(const SegmentId& id) {
    return Run(Call::ReadEntries, [&] { return inner.ReadEntries(id); });
}

void FaultyEngine::ReadChunk(const SegmentId& id, const ChunkEntry& entry, IChunkSink& sink) {
    Run(Call::ReadChunk, [&] { inner.ReadChunk(id, entry, sink); });
}

void FaultyEngine::RemoveSegment(const SegmentId& id, Epoch epoch, std::uint64_t ringFront) {
    Run(Call::RemoveSegment, [&] { inner.RemoveSegment(id, epoch, ringFront); });
}

std::string FaultyEngine::Describe(const SegmentId& id) {
    return inner.Describe(id);
}

void FaultyEngine::Verify(const SegmentId& id, std::uint32_t offset, IVerifyObserver& observer) {
    Run(Call::Verify, [&] { inner.Verify(id, offset, observer); });
}

void FaultyEngine::Notify(TrackId track, std::int64_t hint) noexcept {
    const std::optional<Rule> rule = Enter(Call::Notify);
    if (!rule) {
        inner.Notify(track, hint);
    }
}

std::unique_ptr<IWatch> FaultyEngine::Watch(TrackId track,
                                            std::function<void(std::int64_t)> callback) {
    return inner.Watch(track, std::move(callback));
}

}  // namespace Brantel::Engine
