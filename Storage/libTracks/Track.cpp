#include "Track.h"

#include "ChunkDecoder.h"
#include "EncodedChunk.h"
#include "StorageOptions.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Brantel::Tracks {

using Engine::EngineError;

namespace {

std::int64_t Saturated(std::uint64_t sum) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    return sum > static_cast<std::uint64_t>(most) ? most : static_cast<std::int64_t>(sum);
}

}  // namespace

Track::Track(const TrackContext& context)
    : context(context), state(context.track), changes(this->context, state) {}

template <typename Look>
auto Track::Ask(Look look) {
    return Named([&] {
        return state.Ask(context, [&](TableSet& tables) {
            state.CheckUsableLocked(context.track);
            return look(state.index, tables);
        });
    });
}

void Track::StartNew(const TrackRecord& record) {
    changes.Start(record);
    const std::lock_guard lock(state.mutex);
    state.phase = record.phase;
    state.capacity = record.capacity;
    state.settings = MakeSettings({});
}

void Track::Load(const TrackRecord& record,
                 const std::map<std::int64_t, Protections::Stretch>& held) {
    StartNew(record);
    try {
        {
            const std::lock_guard lock(state.mutex);
            state.protections.Load(held);
        }
        LoadProperties();
        changes.Load(record);
    } catch (const std::exception& error) {
        context.options.log("Track " + std::to_string(context.track) +
                            " can't be loaded: " + error.what());
        const std::lock_guard lock(state.mutex);
        state.failure = error.what();
    }
}

void Track::CheckUsable() {
    const std::lock_guard lock(state.mutex);
    state.CheckUsableLocked(context.track);
}

bool Track::IsReady() {
    const std::lock_guard lock(state.mutex);
    return state.phase == TrackRecord::Phase::Ready;
}

bool Track::IsInCreation() {
    const std::lock_guard lock(state.mutex);
    return state.phase == TrackRecord::Phase::Creating;
}

void Track::OpenWorker(bool isWriter) {
    const std::lock_guard lock(state.mutex);
    state.CheckUsableLocked(context.track);
    if (isWriter && state.hasWriter) {
        throw std::runtime_error("Track " + std::to_string(context.track) +
                                 " already has a writer");
    }
    state.hasWriter = state.hasWriter || isWriter;
    ++state.openWorkers;
}

void Track::CloseWorker(bool isWriter) noexcept {
    const std::lock_guard lock(state.mutex);
    state.hasWriter = state.hasWriter && !isWriter;
    --state.openWorkers;
}

void Track::ThrowDamaged(const FoundChunk& found, const std::string& text) {
    const std::string what = "the chunk at " + std::to_string(found.entry.timePoint) +
                             " is damaged, in " + context.engine.Describe(found.segment) +
                             " at offset " + std::to_string(found.entry.offset) + ": " + text;
    if (state.damaged.Note(found)) {
        context.options.log("Track " + std::to_string(context.track) + ": " + what);
    }
    throw TrackError(context.track, what);
}

template <typename Find>
bool Track::Read(Find find, const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                 std::uint64_t& payload) {
    std::optional<FoundChunk> failed;
    std::string failure;
    for (;;) {
        chunk.Clear();
        const std::optional<FoundChunk> found = Ask(find);
        if (!found) {
            return false;
        }
        // Found again at the same place: it was not recycled while it was read.
        if (failed && failed->segment == found->segment && failed->entry == found->entry) {
            ThrowDamaged(*found, failure);
        }
        ChunkDecoder decoder(keys, chunk);
        try {
            context.engine.ReadChunk(found->segment, found->entry, decoder);
        } catch (const EngineError& error) {
            if (error.GetKind() != EngineError::Kind::Gone &&
                error.GetKind() != EngineError::Kind::Damaged) {
                chunk.Clear();
                throw TrackError(context.track, error.what());
            }
            failed = found;
            failure = error.what();
            continue;
        } catch (const std::runtime_error& error) {
            chunk.Clear();
            ThrowDamaged(*found, error.what());
        }
        payload = decoder.GetPayloadBytes();
        chunk.mutable_timecode()->set_nanoseconds(
            static_cast<std::uint64_t>(found->entry.timePoint));
        chunk.mutable_duration()->set_nanoseconds(
            static_cast<std::uint64_t>(found->entry.duration));
        return true;
    }
}

bool Track::GetChunk(std::int64_t timePoint, const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                     std::uint64_t& payload) {
    return Read([timePoint](const TrackIndex& index,
                            TableSet& tables) { return index.FindCovering(timePoint, tables); },
                keys, chunk, payload);
}

bool Track::GetNextChunk(std::int64_t timePoint, const Protocol::KeyList& keys,
                         Protocol::Chunk& chunk, std::uint64_t& payload) {
    return Read([timePoint](const TrackIndex& index,
                            TableSet& tables) { return index.FindAfter(timePoint, tables); },
                keys, chunk, payload);
}

bool Track::GetPreviousChunk(std::int64_t timePoint, const Protocol::KeyList& keys,
                             Protocol::Chunk& chunk, std::uint64_t& payload) {
    return Read([timePoint](const TrackIndex& index,
                            TableSet& tables) { return index.FindBefore(timePoint, tables); },
                keys, chunk, payload);
}

std::int64_t Track::GetNextTimePoint(std::int64_t timePoint) {
    return Ask([timePoint](const TrackIndex& index, TableSet& tables) {
        return index.FindTimeAfter(timePoint, tables).value_or(-1);
    });
}

std::int64_t Track::GetPreviousTimePoint(std::int64_t timePoint) {
    return Ask([timePoint](const TrackIndex& index, TableSet& tables) {
        return index.FindTimeBefore(timePoint, tables).value_or(-1);
    });
}

std::int64_t Track::GetBeginning() {
    return Ask([](const TrackIndex& index, TableSet&) { return index.GetBeginning(); });
}

std::int64_t Track::GetEnd() {
    return Ask([](const TrackIndex& index, TableSet&) { return index.GetEnd(); });
}

std::int64_t Track::GetNumberOfChunks(std::int64_t in, std::int64_t out) {
    return Saturated(Ask([in, out](const TrackIndex& index, TableSet& tables) {
                         return index.Sum(in, out, tables);
                     }).count);
}

std::int64_t Track::GetAccumulatedDuration(std::int64_t in, std::int64_t out) {
    return Saturated(Ask([in, out](const TrackIndex& index, TableSet& tables) {
                         return index.Sum(in, out, tables);
                     }).duration);
}

bool Track::Serves(const FoundChunk& chunk) {
    const std::optional<FoundChunk> served =
        Ask([&chunk](const TrackIndex& index, TableSet& tables) {
            return index.FindUpTo(chunk.entry.timePoint, tables);
        });
    return served && served->segment == chunk.segment && served->entry == chunk.entry;
}

std::uint64_t Track::GetCapacity() {
    const std::lock_guard lock(state.mutex);
    state.CheckUsableLocked(context.track);
    return state.capacity;
}

void Track::Describe(Protocol::TrackInfo& info) {
    const std::lock_guard lock(state.mutex);
    info.set_trackid(static_cast<std::uint64_t>(context.track));
    info.mutable_tpin()->set_nanoseconds(static_cast<std::uint64_t>(state.index.GetBeginning()));
    info.mutable_tpout()->set_nanoseconds(static_cast<std::uint64_t>(state.index.GetEnd()));
    info.set_size(state.index.GetBytes());
    info.set_capacity(state.capacity);
}

TrackStatus Track::GetStatus() {
    TrackStatus status;
    status.id = context.track;
    status.damagedChunks = state.damaged.Count();
    const std::lock_guard lock(state.mutex);
    switch (state.phase) {
        case TrackRecord::Phase::Creating: status.state = TrackStatus::State::Creating; break;
        case TrackRecord::Phase::Deleting: status.state = TrackStatus::State::Deleting; break;
        case TrackRecord::Phase::Ready: status.state = TrackStatus::State::Ready; break;
    }
    if (!state.failure.empty()) {
        status.state = TrackStatus::State::Failed;
        status.failure = state.failure;
    }
    status.capacity = state.capacity;
    status.used = state.index.GetBytes();
    status.held = state.GetHeldBytesLocked();
    status.begin = state.index.GetBeginning();
    status.last = state.index.GetLast();
    status.end = state.index.GetEnd();
    status.chunks = state.index.held.GetCount() + state.index.ring.GetCount();
    status.protections = state.protections.GetAll().size();
    status.readers = state.openWorkers - (state.hasWriter ? 1 : 0);
    status.hasWriter = state.hasWriter;
    status.durability = state.settings.durability;
    status.isLoop = state.settings.retention == TrackSettings::Retention::Loop;
    status.appendedChunks = state.appendedChunks;
    status.appendedBytes = state.appendedBytes;
    status.recycledChunks = state.recycledChunks;
    return status;
}

bool Track::Wait(std::int64_t timePoint, int timeoutMilliseconds,
                 const std::function<bool()>& isGone, const std::atomic<bool>& isStopping) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds betweenLooks(200);
    const auto begin = Clock::now();
    const auto timeout = std::chrono::milliseconds(timeoutMilliseconds);
    const auto isThere = [this, timePoint] {
        state.CheckUsableLocked(context.track);
        return state.index.GetLast() > timePoint && !state.index.IsEmpty();
    };
    bool isWatched = false;
    for (;;) {
        {
            std::unique_lock lock(state.mutex);
            if (isThere()) {
                return true;
            }
            const auto now = Clock::now();
            if (timeoutMilliseconds >= 0 && now >= begin + timeout) {
                return false;
            }
            if (isWatched) {
                const auto look = now + betweenLooks;
                state.appended.wait_until(
                    lock, timeoutMilliseconds < 0 ? look : std::min(look, begin + timeout));
                if (isThere()) {
                    return true;
                }
            }
        }
        if (!isWatched) {
            std::call_once(isAppendWatched, [this] {
                watch =
                    context.engine.Watch(context.track, [this](std::int64_t) { WakeWaiting(); });
            });
            isWatched = true;
        }
        if (isStopping) {
            throw TrackError(context.track, "the wait was ended, the server stops");
        }
        if (isGone()) {
            throw TrackError(context.track, "the wait was ended, the client has gone");
        }
    }
}

void Track::WakeWaiting() {
    state.appended.notify_all();
}

void Track::Append(EncodedChunk& chunk) {
    Named([&] { changes.Append(chunk); });
}

void Track::Clear() {
    Named([&] { changes.Clear(); });
}

void Track::Protect(std::int64_t id, std::int64_t timePoint, std::int64_t duration) {
    Named([&] { changes.Protect(id, Protections::Stretch{timePoint, duration}); });
}

bool Track::HasProtection(std::int64_t id) {
    const std::lock_guard lock(state.mutex);
    return state.protections.GetAll().contains(id);
}

bool Track::Unprotect(std::int64_t id) {
    return Named([&] { return changes.Unprotect(id); });
}

void Track::ListProtections(Protocol::ProtectionInfos& infos) {
    const std::lock_guard lock(state.mutex);
    for (const auto& [id, stretch] : state.protections.GetAll()) {
        Protocol::ProtectionInfo& info = *infos.add_infos();
        info.set_handle(static_cast<std::uint64_t>(id));
        info.set_trackid(static_cast<std::uint64_t>(context.track));
        info.mutable_tcin()->set_nanoseconds(static_cast<std::uint64_t>(stretch.timePoint));
        info.mutable_tcout()->set_nanoseconds(
            static_cast<std::uint64_t>(stretch.timePoint + stretch.duration));
    }
}

}  // namespace Brantel::Tracks
