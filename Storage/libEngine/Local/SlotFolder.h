#pragma once

#include "Local/FileCache.h"
#include "Local/FolderCalls.h"
#include "Local/LocalOptions.h"
#include "Local/SpaceBudget.h"

#include <libEngine/IEngine.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Engine {

class Catalogue;
class FlushMeter;

// What all tracks of a store share; outlives them.
struct LocalContext {
    const LocalOptions& options;
    const FolderCalls& folders;
    const std::string tracksFolder;
    Catalogue& catalogue;
    FileCache& cache;
    SpaceBudget& budget;
    FlushMeter& flushMeter;
};

// The files of one track. A slot file is made under another name and gets its own when all its
// space is there and lasting. The caller takes turns.
class SlotFolder {
  public:
    using Slot = std::shared_ptr<SlotFile>;

    SlotFolder(const LocalContext& context, TrackId track);

    // The slots that are there, by number; removes what was never finished, unless nothing may be
    // changed.
    std::vector<Slot> List() const;

    // Makes slots with these numbers, all or none, each counted as taken from the budget. Throws
    // NoSpace, Io, and Cancelled when `progress` asks to stop.
    std::vector<Slot> Make(const std::vector<std::uint32_t>& numbers, std::uint32_t segmentSize,
                           IProgress& progress) const;

    // The file is gone when it returns; what has it open can go on reading.
    void Remove(const Slot& slot) const;
    // Makes removals lasting.
    void Flush() const;
    // The empty folder; fine when it is missing.
    void RemoveFolder() const;

    const std::string& GetPath() const { return path; }

  private:
    class Preparation;

    const LocalContext& context;
    const std::string path;
};

}  // namespace Brantel::Engine
