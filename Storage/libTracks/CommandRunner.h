#pragma once

#include "CommandLog.h"
#include "CommandRecord.h"
#include "SpacePromises.h"
#include "TrackRegistry.h"

#include <libEngine/IEngine.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <vector>

namespace Brantel::Tracks {

class TrackGeometry;
struct StorageOptions;

// Carries one command out, or undoes it. Used by one thread at a time; blocks. Lets no failure out:
// a command that fails is undone, and what can't be undone is logged and left to the next start.
class CommandRunner {
  public:
    // All borrowed. When `isStopping` becomes true, a command that runs is undone.
    CommandRunner(Engine::IEngine& engine, TrackRegistry& registry, CommandLog& log,
                  SpacePromises& promises, const StorageOptions& options,
                  const TrackGeometry& geometry, const std::atomic<bool>& isStopping)
        : engine(engine),
          registry(registry),
          log(log),
          promises(promises),
          options(options),
          geometry(geometry),
          isStopping(isStopping) {}

    void CarryOut(const CommandRecord& command);
    void Undo(const CommandRecord& command);

    // A track that was left in creation.
    void RemoveUnfinished(std::int64_t track, std::vector<Engine::RecordChange> changes);

  private:
    class Progress;

    void Create(const CommandRecord& command);
    void Grow(const CommandRecord& command);
    void Delete(const CommandRecord& command);
    void UndoCreate(const CommandRecord& command);
    void UndoGrow(const CommandRecord& command);
    void Write(const std::vector<Engine::RecordChange>& changes);
    // To the operator; without memory nothing is said.
    void Say(const CommandRecord& command, const char* text,
             const std::exception& error) const noexcept;

    Engine::IEngine& engine;
    TrackRegistry& registry;
    CommandLog& log;
    SpacePromises& promises;
    const StorageOptions& options;
    const TrackGeometry& geometry;
    const std::atomic<bool>& isStopping;
};

}  // namespace Brantel::Tracks
