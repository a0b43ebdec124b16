#include "CommandLog.h"

#include <algorithm>

namespace Brantel::Tracks {

using State = CommandRecord::State;

void CommandLog::Load(Engine::IEngine& engine) {
    const std::vector<Engine::Record> records = engine.ScanRecords(CommandRecord::prefix);
    const std::lock_guard lock(mutex);
    for (const Engine::Record& stored : records) {
        const CommandRecord record = CommandRecord::Decode(stored.value);
        commands[record.id].record = record;
        ended += record.state == State::Queued ? 0 : 1;
    }
}

std::vector<CommandRecord> CommandLog::ListUnfinished() {
    const std::lock_guard lock(mutex);
    std::vector<CommandRecord> unfinished;
    for (const auto& [id, command] : commands) {
        if (command.record.state == State::Queued) {
            unfinished.push_back(command.record);
        }
    }
    return unfinished;
}

void CommandLog::Add(const CommandRecord& record) {
    const std::lock_guard lock(mutex);
    commands[record.id].record = record;
}

void CommandLog::Forget(std::int64_t id) noexcept {
    const std::lock_guard lock(mutex);
    commands.erase(id);
}

void CommandLog::SetProgress(std::int64_t id, int percent) {
    const std::lock_guard lock(mutex);
    Command& command = commands.at(id);
    command.isOngoing = true;
    command.percent = percent;
}

std::vector<Engine::RecordChange> CommandLog::PrepareEnd(const CommandRecord& record, State state) {
    CommandRecord changed = record;
    changed.state = state;
    std::vector<Engine::RecordChange> changes{{CommandRecord::Key(record.id), changed.Encode()}};
    const std::lock_guard lock(mutex);
    std::size_t tooMany = ended + 1 > historyLimit ? ended + 1 - historyLimit : 0;
    for (auto command = commands.begin(); tooMany > 0 && command != commands.end(); ++command) {
        if (command->second.record.state != State::Queued) {
            changes.push_back({CommandRecord::Key(command->first), std::nullopt});
            --tooMany;
        }
    }
    return changes;
}

void CommandLog::End(std::int64_t id, State state) {
    const std::lock_guard lock(mutex);
    Command& command = commands.at(id);
    command.record.state = state;
    command.isOngoing = false;
    command.percent = state == State::Finished ? 100 : command.percent;
    ++ended;
    for (auto oldest = commands.begin(); ended > historyLimit && oldest != commands.end();) {
        if (oldest->second.record.state == State::Queued) {
            ++oldest;
        } else {
            oldest = commands.erase(oldest);
            --ended;
        }
    }
}

void CommandLog::Describe(std::int64_t id, Protocol::CommandInfo& info) {
    const std::lock_guard lock(mutex);
    const auto found = commands.find(id);
    info.set_progression(0);
    if (found == commands.end()) {
        info.set_type(Protocol::CommandInfo::NOT_EXIST);
        return;
    }
    const Command& command = found->second;
    switch (command.record.state) {
        case State::Finished:
            info.set_type(Protocol::CommandInfo::FINISHED);
            info.set_progression(100);
            return;
        case State::Canceled: info.set_type(Protocol::CommandInfo::CANCELED); break;
        case State::Queued:
            info.set_type(command.isOngoing ? Protocol::CommandInfo::ONGOING
                                            : Protocol::CommandInfo::QUEUED);
            break;
    }
    info.set_progression(static_cast<std::uint64_t>(command.percent));
}

void CommandLog::ListOngoing(Protocol::Ids& ids) {
    for (const CommandRecord& record : ListUnfinished()) {
        ids.add_ids(static_cast<std::uint64_t>(record.id));
    }
}

}  // namespace Brantel::Tracks
