#include "Support/TrackTurnover.h"

#include "Support/LocalStoreTest.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineError.h>

#include <algorithm>
#include <string_view>

namespace Brantel::Engine {

namespace {

constexpr std::uint32_t segmentSize = 4 * ChunkLayout::unit;
constexpr std::uint64_t segmentCount = 2;

std::string TextOf(TrackId track) {
    return "the chunk of track " + std::to_string(track);
}

ChunkEntry EntryOf(TrackId track) {
    const std::string text = TextOf(track);
    const std::string_view part = text;
    ChunkEntry entry;
    entry.timePoint = track;
    entry.duration = 1;
    entry.offset = ChunkLayout::segmentHeaderSize;
    ChunkLayout::SetLengths(entry, std::span(&part, 1));
    return entry;
}

bool HasItsChunk(IEngine& engine, TrackId track) {
    const SegmentId id{track, LogKind::Ring, 1};
    if (engine.ReadEntries(id) != std::vector<ChunkEntry>{EntryOf(track)}) {
        return false;
    }
    AllParts sink;
    engine.ReadChunk(id, EntryOf(track), sink);
    return sink.parts == std::vector<std::string>{TextOf(track)};
}

}  // namespace

void TrackTurnover::Tell() {
    if (onChange) {
        onChange(answered);
    }
}

void TrackTurnover::Recover(const AnsweredTracks& known) {
    answered = known;
    const auto end = firstTrack + static_cast<TrackId>(answered.made);
    const auto begin = firstTrack + static_cast<TrackId>(answered.front);
    for (const Reservation& reservation : engine.ListReservations()) {
        const TrackId track = reservation.track;
        if (track >= firstTrack && (track < begin || track >= end)) {
            Release(track);
        }
    }
    answered.attempted = answered.made;
    Tell();
}

void TrackTurnover::Step(std::uint64_t most) {
    if (answered.made - answered.front < most) {
        Make();
        return;
    }
    ++answered.front;
    Tell();
    Release(firstTrack + static_cast<TrackId>(answered.front) - 1);
}

void TrackTurnover::Make() {
    const TrackId track = firstTrack + static_cast<TrackId>(answered.made);
    const std::string text = TextOf(track);
    const std::vector<std::string_view> parts{text};
    const SegmentId id{track, LogKind::Ring, 1};
    ++answered.attempted;
    Tell();
    SilentProgress progress;
    engine.Reserve({track, segmentSize, segmentCount}, progress);
    engine.CreateSegment(id, epoch);
    engine.Append(id, epoch, EntryOf(track), parts, Durability{});
    ++answered.made;
    Tell();
}

void TrackTurnover::Release(TrackId track) {
    SilentProgress progress;
    engine.Release(track, progress);
}

std::vector<std::string> TrackTurnover::Check(IEngine& engine, const AnsweredTracks& answered) {
    std::vector<std::string> problems;
    for (std::uint64_t number = answered.front; number < answered.made; ++number) {
        const TrackId track = firstTrack + static_cast<TrackId>(number);
        try {
            if (!HasItsChunk(engine, track)) {
                problems.push_back("track " + std::to_string(track) + " does not hold its chunk");
            }
        } catch (const EngineError& error) {
            problems.push_back("track " + std::to_string(track) + ": " + error.what());
        }
    }
    const auto end = static_cast<TrackId>(std::max(answered.attempted, answered.made));
    for (const Reservation& reservation : engine.ListReservations()) {
        if (reservation.track >= firstTrack + end) {
            problems.push_back("track " + std::to_string(reservation.track) +
                               " was never asked for");
        }
    }
    return problems;
}

}  // namespace Brantel::Engine
