#include "HeldPacker.h"

#include "EntryTable.h"
#include "StorageOptions.h"
#include "StoredChunk.h"

#include <libEngine/ChunkLayout.h>

#include <string>
#include <utility>

namespace Brantel::Tracks {

using Engine::ChunkLayout;

bool HeldPacker::Pack() {
    const std::uint64_t before = recycler.CountFreeSegments();
    const Window window = logs.canPack ? FindWindow() : Window();
    if (window.empty()) {
        return false;
    }
    // Whatever comes of it: nothing is packed again before something more has been given up.
    logs.canPack = false;
    try {
        while (FillOneSegment(window)) {
            recycler.RemoveEmptied();
        }
    } catch (const Engine::EngineError& error) {
        context.options.log("Track " + std::to_string(context.track) +
                            ": held chunks could not be packed: " + error.what());
    }
    recycler.RemoveEmptied();
    const bool isWorthIt = recycler.CountFreeSegments() > before;
    logs.canPack = isWorthIt;
    return isWorthIt;
}

// The first neighbours that fit into fewer segments. Some room is left for the ends of segments,
// into which the next chunk does not fit.
HeldPacker::Window HeldPacker::FindWindow() const {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> segments;  // and their live bytes
    for (const Log::Run& run : state.index.held.GetRuns()) {
        if (run.segment == logs.held.GetTail()) {
            break;
        }
        if (segments.empty() || segments.back().first != run.segment) {
            segments.emplace_back(run.segment, 0);
        }
        segments.back().second += run.bytes;
    }
    const std::uint64_t usable = ChunkLayout::Usable(context.segmentSize);
    const std::uint64_t filled = usable - usable / 16;
    for (std::size_t first = 0; first < segments.size(); ++first) {
        std::uint64_t bytes = segments[first].second;
        for (std::size_t last = first + 1; last < segments.size(); ++last) {
            bytes += segments[last].second;
            if (bytes <= (last - first) * filled) {
                Window window;
                for (std::size_t index = first; index <= last; ++index) {
                    window.insert(segments[index].first);
                }
                return window;
            }
        }
    }
    return {};
}

std::vector<Engine::ChunkEntry> HeldPacker::ReadRun(const Log::Run& run) {
    return state.Ask(context, [this, &run](TableSet& tables) {
        std::vector<Engine::ChunkEntry> entries;
        const EntryTable* table = state.index.held.GetTable(run, tables);
        if (table != nullptr) {
            for (EntryTable::Cursor cursor(*table, run.begin); cursor.GetIndex() < run.end;
                 cursor.Next()) {
                entries.push_back(cursor.GetEntry());
            }
        }
        return entries;
    });
}

// Moves as many chunks from the window's beginning as one segment takes. False: none are left.
bool HeldPacker::FillOneSegment(const Window& window) {
    const std::vector<Log::Run> runs = state.index.held.GetRuns();
    std::size_t next = 0;
    Log changed(context.track, Engine::LogKind::Held);
    for (; next < runs.size() && !window.contains(runs[next].segment); ++next) {
        changed.AppendRun(runs[next]);
    }
    if (next == runs.size()) {
        return false;
    }
    const std::uint64_t number = logs.held.TakeNumber();
    // Known as void first: after a crash from here on, the copy is not taken for chunks of its own.
    recycler.WriteRecord(logs.record, runs);
    logs.held.Create(number);
    LogWriter copy(context, Engine::LogKind::Held);
    Engine::SegmentInfo info;
    info.id = copy.GetId(number);
    info.end = ChunkLayout::segmentHeaderSize;
    copy.AdoptTail(info);

    StoredChunk chunk;
    std::uint64_t durationBefore = 0;
    bool isFull = false;
    for (; next < runs.size() && !isFull && window.contains(runs[next].segment); ++next) {
        const Log::Run& run = runs[next];
        std::uint64_t runDuration = run.durationBefore;
        std::uint32_t index = run.begin;
        for (const Engine::ChunkEntry& source : ReadRun(run)) {
            isFull = isFull || !copy.Takes(source.length);
            if (isFull) {
                changed.Append(run.segment, index, source, runDuration);
            } else {
                context.engine.ReadChunk(changed.GetId(run), source, chunk);
                Engine::ChunkEntry entry =
                    copy.Place(source.timePoint, source.duration, chunk.GetParts());
                entry.ordinal = logs.nextHeldOrdinal++;
                const std::uint32_t position = copy.GetTailCount();
                copy.Append(entry, chunk.GetParts(),
                            Engine::Durability{Engine::Durability::Mode::Os, {}});
                changed.Append(number, position, entry, durationBefore);
                durationBefore += static_cast<std::uint64_t>(entry.duration);
            }
            runDuration += static_cast<std::uint64_t>(source.duration);
            ++index;
        }
    }
    for (; next < runs.size(); ++next) {
        changed.AppendRun(runs[next]);
    }
    // The record that names the copies must not outlive them.
    copy.FlushTail();
    copy.SealTail();
    std::vector<Log::Run> packed = changed.GetRuns();
    recycler.WriteRecord(logs.record, packed);
    const std::lock_guard lock(state.mutex);
    state.index.held.Replace(std::move(packed));
    return true;
}

}  // namespace Brantel::Tracks
