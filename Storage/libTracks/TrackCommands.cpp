#include "TrackCommands.h"

#include "StorageOptions.h"
#include "Track.h"
#include "TrackError.h"
#include "TrackGeometry.h"

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace Brantel::Tracks {

using Kind = CommandRecord::Kind;

namespace {

void CheckSmallest(std::int64_t id, std::int64_t size) {
    const auto smallest = static_cast<std::int64_t>(TrackGeometry::SmallestChunk());
    if (size < smallest) {
        throw TrackError(id, "size " + std::to_string(size) +
                                 " is below that of the smallest chunk, " +
                                 std::to_string(smallest) + " bytes");
    }
}

void Answer(const CommandRecord& command, Protocol::TrackParameters& answer) {
    answer.set_id(static_cast<std::uint64_t>(command.track));
    answer.set_size(command.capacity);
    answer.set_commandid(static_cast<std::uint64_t>(command.id));
}

}  // namespace

TrackCommands::TrackCommands(Engine::IEngine& engine, TrackRegistry& registry,
                             const StorageOptions& options, const TrackGeometry& geometry)
    : engine(engine),
      registry(registry),
      options(options),
      geometry(geometry),
      log(options.commandHistory),
      promises(engine),
      ids(engine, IdSource::commandIds),
      runner(engine, registry, log, promises, options, geometry, isStopping) {}

TrackCommands::~TrackCommands() {
    try {
        Stop();
    } catch (const std::exception&) {
        // Behind the end of the thread: identifiers are skipped as after a crash.
        return;
    }
}

void TrackCommands::Start() {
    log.Load(engine);
    for (const CommandRecord& command : log.ListUnfinished()) {
        if (command.kind == Kind::Delete) {
            queue.push_back(command);
        } else {
            runner.Undo(command);
        }
    }
    thread = std::thread([this] { Run(); });
}

void TrackCommands::Stop() {
    {
        const std::lock_guard lock(mutex);
        isStopping = true;
    }
    queued.notify_all();
    if (!thread.joinable()) {
        return;
    }
    thread.join();
    try {
        ids.Settle();
    } catch (const std::exception& error) {
        options.log("some command identifiers will be skipped: " + std::string(error.what()));
    }
}

void TrackCommands::Run() {
    for (;;) {
        CommandRecord command;
        {
            std::unique_lock lock(mutex);
            queued.wait(lock, [this] { return isStopping || !queue.empty(); });
            if (queue.empty()) {
                return;
            }
            command = queue.front();
            queue.pop_front();
        }
        if (isStopping) {
            runner.Undo(command);
        } else {
            runner.CarryOut(command);
        }
    }
}

std::int64_t TrackCommands::GetRemainingSpace() {
    return static_cast<std::int64_t>(geometry.LargestCapacity(promises.GetAvailable()));
}

CommandRecord TrackCommands::Prepare(Kind kind, std::int64_t track) {
    {
        const std::lock_guard lock(mutex);
        if (isStopping) {
            throw TrackError(track, "the server stops");
        }
        if (queue.size() >= queueLimit) {
            throw TrackError(track, std::to_string(queue.size()) +
                                        " commands are waiting, the limit is " +
                                        std::to_string(queueLimit));
        }
    }
    CommandRecord command;
    command.id = ids.Next();
    command.kind = kind;
    command.track = track;
    return command;
}

void TrackCommands::WriteNew(const CommandRecord& command,
                             std::vector<Engine::RecordChange> changes) {
    changes.push_back({CommandRecord::Key(command.id), command.Encode(), 0});
    if (!engine.WriteRecords(changes)) {
        throw TrackError(command.track,
                         "command " + std::to_string(command.id) + " exists already");
    }
}

template <typename Write>
void TrackCommands::Queue(const CommandRecord& command, Write write) {
    // All memory is taken before the command is written down: from then on it takes its course.
    std::list<CommandRecord> added;
    try {
        added.push_back(command);
        log.Add(command);
        write();
    } catch (...) {
        log.Forget(command.id);
        promises.Forget(command.id);
        throw;
    }
    {
        const std::lock_guard lock(mutex);
        queue.splice(queue.end(), added);
    }
    queued.notify_one();
}

void TrackCommands::Create(std::int64_t id, std::int64_t size, Protocol::TrackParameters& answer) {
    if (id < 0) {
        throw TrackError(id, "the identifier of a track is not below 0");
    }
    CommandRecord command = Prepare(Kind::Create, id);
    TrackRecord record;
    promises.Promise(command.id, [&](std::uint64_t available) {
        command.track = id == 0 ? registry.GetSmallestFreeId() : id;
        if (registry.Find(command.track)) {
            throw std::runtime_error("Track " + std::to_string(id) + " already exists");
        }
        CheckSmallest(command.track, size);
        command.capacity = TrackGeometry::RoundUp(static_cast<std::uint64_t>(size));
        record.capacity = command.capacity;
        record.segmentSize = geometry.SegmentSize(command.capacity);
        const std::uint64_t bytes =
            geometry.Reserve(command.track, record.capacity, record.segmentSize).Bytes();
        if (bytes > available) {
            throw TrackError(command.track,
                             "size " + std::to_string(size) +
                                 " is more than the remaining space, " +
                                 std::to_string(geometry.LargestCapacity(available)) + " bytes");
        }
        const std::shared_ptr<Track> track = registry.Make(command.track, record.segmentSize);
        track->StartNew(record);
        registry.Insert(track);
        return bytes;
    });
    try {
        Queue(command, [&] {
            WriteNew(command, {{TrackRecord::Key(command.track), record.Encode()}});
        });
    } catch (...) {
        registry.Erase(command.track);
        throw;
    }
    Answer(command, answer);
}

void TrackCommands::Grow(std::int64_t id, std::int64_t size, Protocol::TrackParameters& answer) {
    const std::shared_ptr<Track> track = registry.Get(id);
    const std::uint64_t capacity = track->GetCapacity();
    if (size < 0 || static_cast<std::uint64_t>(size) < capacity) {
        throw TrackError(id, "size " + std::to_string(size) + " is below its capacity, " +
                                 std::to_string(capacity) + " bytes");
    }
    CommandRecord command = Prepare(Kind::Grow, id);
    command.capacity = TrackGeometry::RoundUp(static_cast<std::uint64_t>(size));
    promises.Promise(command.id, [&](std::uint64_t available) {
        const std::uint32_t segmentSize = track->GetSegmentSize();
        const std::uint64_t bytes = geometry.Reserve(id, command.capacity, segmentSize).Bytes() -
                                    geometry.Reserve(id, capacity, segmentSize).Bytes();
        if (bytes > available) {
            throw TrackError(id, "size " + std::to_string(size) + " takes " +
                                     std::to_string(bytes) +
                                     " bytes more, the remaining space is " +
                                     std::to_string(available) + " bytes");
        }
        return bytes;
    });
    Queue(command, [&] { WriteNew(command, {}); });
    Answer(command, answer);
}

void TrackCommands::Delete(std::int64_t id, Protocol::TrackParameters& answer) {
    const std::shared_ptr<Track> track = registry.Get(id);
    const std::uint64_t capacity = track->GetCapacity();
    CommandRecord command = Prepare(Kind::Delete, id);
    command.capacity = capacity;
    Queue(command, [&] {
        track->GetChanges().BeginDeletion({{CommandRecord::Key(command.id), command.Encode(), 0}});
    });
    Answer(command, answer);
}

}  // namespace Brantel::Tracks
