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
    if (!command.isOngoing) {
        command.isOngoing = true;
        command.begin = std::chrono::steady_clock::now();
    }
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
    ++(state == State::Finished ? finishedNow : canceledNow);
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

std::vector<CommandStatus> CommandLog::GetStatus(CommandCounts& counts) {
    using Kind = CommandRecord::Kind;
    const auto now = std::chrono::steady_clock::now();
    std::vector<CommandStatus> list;
    const std::lock_guard lock(mutex);
    counts = {0, 0, finishedNow, canceledNow};
    for (const auto& [id, command] : commands) {
        if (command.record.state != State::Queued) {
            continue;
        }
        CommandStatus& status = list.emplace_back();
        status.id = id;
        switch (command.record.kind) {
            case Kind::Create: status.kind = CommandStatus::Kind::Create; break;
            case Kind::Grow: status.kind = CommandStatus::Kind::Grow; break;
            case Kind::Delete: status.kind = CommandStatus::Kind::Delete; break;
        }
        status.isOngoing = command.isOngoing;
        status.track = command.record.track;
        status.capacity = command.record.capacity;
        status.percent = command.percent;
        ++(command.isOngoing ? counts.ongoing : counts.queued);
        const std::chrono::duration<double> age = now - command.begin;
        if (command.isOngoing && age.count() > 0) {
            status.percentPerSecond = command.percent / age.count();
        }
    }
    return list;
}

}  // namespace Brantel::Tracks
