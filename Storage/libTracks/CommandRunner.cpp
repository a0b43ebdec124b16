#include "CommandRunner.h"

#include "StorageOptions.h"
#include "Track.h"
#include "TrackGeometry.h"
#include "TrackRecord.h"
#include "Unheard.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Brantel::Tracks {

using State = CommandRecord::State;
using Kind = CommandRecord::Kind;

// Shows how far a command is, and asks it to stop when the server does.
class CommandRunner::Progress : public Engine::IProgress {
  public:
    Progress(CommandRunner& runner, std::int64_t id) : runner(runner), id(id) {}

    bool Report(std::uint64_t done, std::uint64_t total) override {
        constexpr std::uint64_t almost = 99;
        // From its first report on, the engine counts what was promised.
        runner.promises.Forget(id);
        runner.log.SetProgress(id, static_cast<int>(done * almost / total));
        return !runner.isStopping;
    }

  private:
    CommandRunner& runner;
    const std::int64_t id;
};

void CommandRunner::CarryOut(const CommandRecord& command) {
    try {
        log.SetProgress(command.id, 0);
        switch (command.kind) {
            case Kind::Create: Create(command); break;
            case Kind::Grow: Grow(command); break;
            case Kind::Delete: Delete(command); break;
        }
    } catch (const std::exception& error) {
        Say(command, "failed: ", error);
        Undo(command);
    }
    promises.Forget(command.id);
}

void CommandRunner::Undo(const CommandRecord& command) {
    try {
        switch (command.kind) {
            case Kind::Create: UndoCreate(command); break;
            case Kind::Grow: UndoGrow(command); break;
            // Nothing of the track is of use any more: the next start goes on with it.
            case Kind::Delete: return;
        }
    } catch (const std::exception& error) {
        Say(command, "is undone at the next start: ", error);
    }
    promises.Forget(command.id);
    log.End(command.id, State::Canceled);
}

void CommandRunner::Create(const CommandRecord& command) {
    const std::shared_ptr<Track> track = registry.Get(command.track);
    Progress progress(*this, command.id);
    engine.Reserve(geometry.Reserve(command.track, command.capacity, track->GetSegmentSize()),
                   progress);
    track->GetChanges().BecomeReady(log.PrepareEnd(command, State::Finished));
    log.End(command.id, State::Finished);
}

void CommandRunner::Grow(const CommandRecord& command) {
    const std::shared_ptr<Track> track = registry.Get(command.track);
    if (command.capacity <= track->GetChanges().GetCapacity()) {
        Write(log.PrepareEnd(command, State::Finished));
    } else {
        Progress progress(*this, command.id);
        engine.Reserve(geometry.Reserve(command.track, command.capacity, track->GetSegmentSize()),
                       progress);
        track->GetChanges().SetCapacity(command.capacity, log.PrepareEnd(command, State::Finished));
    }
    log.End(command.id, State::Finished);
}

void CommandRunner::Delete(const CommandRecord& command) {
    Progress progress(*this, command.id);
    engine.Release(command.track, progress);
    std::vector<Engine::RecordChange> changes = log.PrepareEnd(command, State::Finished);
    changes.push_back({TrackRecord::Key(command.track), std::nullopt});
    changes.push_back({Track::PropertiesKey(command.track), std::nullopt});
    Write(changes);
    registry.Erase(command.track);
    log.End(command.id, State::Finished);
}

void CommandRunner::RemoveUnfinished(std::int64_t track,
                                     std::vector<Engine::RecordChange> changes) {
    Unheard progress;
    engine.Release(track, progress);
    changes.push_back({TrackRecord::Key(track), std::nullopt});
    changes.push_back({Track::PropertiesKey(track), std::nullopt});
    Write(changes);
    registry.Erase(track);
}

void CommandRunner::UndoCreate(const CommandRecord& command) {
    const std::shared_ptr<Track> track = registry.Find(command.track);
    std::vector<Engine::RecordChange> changes = log.PrepareEnd(command, State::Canceled);
    // Another command may have created it since the server lost sight of this one.
    if (track && track->IsInCreation()) {
        RemoveUnfinished(command.track, std::move(changes));
    } else {
        Write(changes);
    }
}

void CommandRunner::UndoGrow(const CommandRecord& command) {
    const std::shared_ptr<Track> track = registry.Find(command.track);
    if (track) {
        track->GetChanges().KeepFront();
        Progress progress(*this, command.id);
        engine.Reserve(geometry.Reserve(command.track, track->GetChanges().GetCapacity(),
                                        track->GetSegmentSize()),
                       progress);
    }
    Write(log.PrepareEnd(command, State::Canceled));
}

void CommandRunner::Write(const std::vector<Engine::RecordChange>& changes) {
    if (!engine.WriteRecords(changes)) {
        throw std::runtime_error("the record " + changes.front().key +
                                 " was changed by somebody else");
    }
}

void CommandRunner::Say(const CommandRecord& command, const char* text,
                        const std::exception& error) const noexcept {
    try {
        options.log("Track " + std::to_string(command.track) + ": command " +
                    std::to_string(command.id) + " " + text + error.what());
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace Brantel::Tracks
