#pragma once

#include "CommandRecord.h"
#include "StorageStatus.h"

#include <CommonMessages.pb.h>
#include <libEngine/IEngine.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace Brantel::Tracks {

// The commands that are known: those that wait or run, and the last ones that have ended.
// Thread-safe. It says what has to be written to the engine and leaves the writing to its caller,
// who has more to write in the same batch.
class CommandLog {
  public:
    explicit CommandLog(std::size_t historyLimit) : historyLimit(historyLimit) {}

    // At the start of a server.
    void Load(Engine::IEngine& engine);
    // Those that had not ended, in the order in which they came.
    std::vector<CommandRecord> ListUnfinished();

    // A new command, before it is written.
    void Add(const CommandRecord& record);
    // It could not be written.
    void Forget(std::int64_t id) noexcept;
    void SetProgress(std::int64_t id, int percent);

    // What to write when a command ends: its new state, and the oldest ended one to be forgotten.
    std::vector<Engine::RecordChange> PrepareEnd(const CommandRecord& record,
                                                 CommandRecord::State state);
    // That was written.
    void End(std::int64_t id, CommandRecord::State state);

    void Describe(std::int64_t id, Protocol::CommandInfo& info);
    void ListOngoing(Protocol::Ids& ids);
    // Those that wait or run, and how many there are in which state.
    std::vector<CommandStatus> GetStatus(CommandCounts& counts);

  private:
    struct Command {
        CommandRecord record;
        bool isOngoing = false;
        int percent = 0;
        std::chrono::steady_clock::time_point begin;  // of its work
    };

    const std::size_t historyLimit;
    std::mutex mutex;
    // guarded by mutex
    std::map<std::int64_t, Command>
        commands;                   // by identifier, which is the order in which they came
    std::size_t ended = 0;          // how many of them
    std::uint64_t finishedNow = 0;  // since the start
    std::uint64_t canceledNow = 0;
};

}  // namespace Brantel::Tracks
