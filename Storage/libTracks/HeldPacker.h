#pragma once

#include "Recycler.h"
#include "TrackLogs.h"
#include "TrackState.h"

#include <cstdint>
#include <set>
#include <vector>

namespace Brantel::Tracks {

// Packs the held log, where protections that ended have left gaps: the chunks of some neighbouring
// segments are copied into fewer new ones. One free segment is enough, since each new one empties
// at least one old one. Works under the track's gate; blocks. A crash in between loses nothing.
class HeldPacker {
  public:
    // All borrowed.
    HeldPacker(const TrackContext& context, TrackState& state, TrackLogs& logs, Recycler& recycler)
        : context(context), state(state), logs(logs), recycler(recycler) {}

    // Needs one free segment. False: there are no more free ones than before.
    bool Pack();

  private:
    // Segments that are packed together.
    using Window = std::set<std::uint64_t>;

    Window FindWindow() const;
    bool FillOneSegment(const Window& window);
    std::vector<Engine::ChunkEntry> ReadRun(const Log::Run& run);

    const TrackContext& context;
    TrackState& state;
    TrackLogs& logs;
    Recycler& recycler;
};

}  // namespace Brantel::Tracks
