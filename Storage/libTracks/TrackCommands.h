#pragma once

#include "CommandLog.h"
#include "CommandRecord.h"
#include "CommandRunner.h"
#include "IdSource.h"
#include "SpacePromises.h"
#include "TrackRegistry.h"

#include <CommonMessages.pb.h>
#include <libEngine/IEngine.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace Brantel::Tracks {

class TrackGeometry;
struct StorageOptions;

// Creates, grows and deletes tracks. What is asked for is checked, promised and written down at
// once; then one thread carries the commands out in the order in which they came. Thread-safe.
//
// A command that is cut off is undone when it creates or grows, by the end in good order or at the
// next start, and reads CANCELED; one that deletes is finished at the next start.
class TrackCommands {
  public:
    // All borrowed. Nothing is carried out before Start.
    TrackCommands(Engine::IEngine& engine, TrackRegistry& registry, const StorageOptions& options,
                  const TrackGeometry& geometry);
    ~TrackCommands();
    TrackCommands(const TrackCommands&) = delete;
    TrackCommands& operator=(const TrackCommands&) = delete;

    // Settles what the last run of the server left, with all its tracks registered, and starts the
    // thread.
    void Start();
    // Cancels what is waiting or running and ends the thread. A second call does nothing.
    void Stop();

    // Each checks its request, throws when it can't be carried out, and describes what will be.
    void Create(std::int64_t id, std::int64_t size, Protocol::TrackParameters& answer);
    void Grow(std::int64_t id, std::int64_t size, Protocol::TrackParameters& answer);
    void Delete(std::int64_t id, Protocol::TrackParameters& answer);

    // The largest capacity that a new track can have, in bytes.
    std::int64_t GetRemainingSpace();
    void Describe(std::int64_t commandId, Protocol::CommandInfo& info) {
        log.Describe(commandId, info);
    }
    void ListOngoing(Protocol::Ids& commandIds) { log.ListOngoing(commandIds); }
    std::vector<CommandStatus> GetStatus(CommandCounts& counts) { return log.GetStatus(counts); }

  private:
    // Commands that can wait at the same time.
    static constexpr std::size_t queueLimit = 10000;

    CommandRecord Prepare(CommandRecord::Kind kind, std::int64_t track);
    // Runs `write`, which writes the command down together with what begins with it, and queues the
    // command then. When that throws, the command is forgotten as if it had never been asked for.
    template <typename Write>
    void Queue(const CommandRecord& command, Write write);
    void WriteNew(const CommandRecord& command, std::vector<Engine::RecordChange> changes);
    void Run();

    Engine::IEngine& engine;
    TrackRegistry& registry;
    const StorageOptions& options;
    const TrackGeometry& geometry;
    CommandLog log;
    SpacePromises promises;
    IdSource ids;
    std::atomic<bool> isStopping = false;
    CommandRunner runner;  // used by Start, then by the thread

    std::mutex mutex;
    std::condition_variable queued;
    std::list<CommandRecord> queue;  // guarded by mutex
    std::thread thread;
};

}  // namespace Brantel::Tracks
