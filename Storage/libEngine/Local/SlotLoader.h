#pragma once

#include "Local/LocalSegment.h"
#include "Local/SlotFolder.h"

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace Brantel::Engine {

// Finds the segments that lie in the slots of a track: by the first and the last page of each, and
// for an open one by the chunks that no index tells of. Changes nothing.
class SlotLoader {
  public:
    using Slot = SlotFolder::Slot;
    using Key = std::pair<LogKind, std::uint64_t>;

    SlotLoader(const LocalContext& context, TrackId track, std::uint32_t segmentSize)
        : context(context), track(track), segmentSize(segmentSize) {}

    // Throws EngineError (Io).
    void Load(const Slot& slot);

    std::map<Key, std::shared_ptr<LocalSegment>> segments;
    std::vector<Slot> usedSlots;    // free, held a segment
    std::vector<Slot> blankSlots;   // free, never held one
    std::vector<Slot> spoiltSlots;  // hold nothing and have another size: as if they were missing
    std::uint64_t lastGeneration = 0;
    std::uint64_t ringFront = 0;  // the newest that a header tells

  private:
    struct Content;

    Content Read(const Slot& slot);
    void JudgeHeader(const Slot& slot, const Content& content, bool isFlushed,
                     LocalSegment& segment) const;
    std::shared_ptr<LocalSegment> Open(const Slot& slot, const Content& content) const;

    const LocalContext& context;
    const TrackId track;
    const std::uint32_t segmentSize;
    std::map<Key, std::uint64_t> generations;
};

}  // namespace Brantel::Engine
