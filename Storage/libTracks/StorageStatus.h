#pragma once

#include <libEngine/EngineCounters.h>
#include <libEngine/EngineTypes.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What a storage tells those who watch over it: plain values, a picture of one moment for each
// track, worker and command by itself. Counts begin with the start of the storage.
namespace Brantel::Tracks {

struct TrackStatus {
    enum class State : std::uint8_t { Creating, Ready, Deleting, Failed };

    std::int64_t id = 0;
    State state = State::Ready;
    std::string failure;  // why it can't be used; only when Failed

    // Bytes. `used` is what its chunks take of the capacity; `held` is what protections keep from
    // being recycled. Where a protection ends within a segment of the ring, that segment's share is
    // in proportion to the time; the rest is exact.
    std::uint64_t capacity = 0;
    std::uint64_t used = 0;
    std::uint64_t held = 0;

    // Nanoseconds: time point of the first chunk, of the last one, and where the last one ends; -1
    // for an empty track.
    std::int64_t begin = -1;
    std::int64_t last = -1;
    std::int64_t end = -1;
    std::uint64_t chunks = 0;
    std::uint64_t protections = 0;

    std::uint64_t readers = 0;
    bool hasWriter = false;
    // In force.
    Engine::Durability durability;
    bool isLoop = true;  // its retention; false: stop

    std::uint64_t appendedChunks = 0;
    std::uint64_t appendedBytes = 0;  // payload: keys are not counted, values are
    std::uint64_t recycledChunks = 0;
    std::uint64_t damagedChunks = 0;  // different ones that a read found
};

struct WorkerStatus {
    std::int64_t id = 0;
    bool isWriter = false;
    std::int64_t track = 0;
    std::int64_t connection = 0;
    std::string clientIpV4Address;
    std::uint64_t bytesPerSecond = 0;  // payload over the last few seconds
    std::chrono::nanoseconds idle{0};  // since its last call began or ended
    // Nanoseconds: time point of the chunk that it read, found or wrote last; -1: none yet.
    std::int64_t position = -1;
    // Nanoseconds from there to the track's last chunk; -1: not known.
    std::int64_t lag = -1;
};

// A command that waits or runs.
struct CommandStatus {
    enum class Kind : std::uint8_t { Create, Grow, Delete };

    std::int64_t id = 0;
    Kind kind = Kind::Create;
    bool isOngoing = false;
    std::int64_t track = 0;
    std::uint64_t capacity = 0;  // bytes that the track is to have, or had
    int percent = 0;
    double percentPerSecond = 0;  // on average since it began
};

struct CommandCounts {
    // Now.
    std::uint64_t queued = 0;
    std::uint64_t ongoing = 0;
    // Since the start.
    std::uint64_t finished = 0;
    std::uint64_t canceled = 0;
};

struct StorageStatus {
    std::vector<TrackStatus> tracks;      // by identifier
    std::vector<WorkerStatus> workers;    // by identifier
    std::vector<CommandStatus> commands;  // in the order in which they came
    CommandCounts commandCounts;
    // Bytes that a new track can have; not set: the medium could not be asked.
    std::optional<std::int64_t> remainingSpace;
    Engine::Space space;
    Engine::EngineCounters engine;
    // Of all tracks, those that are gone included.
    std::uint64_t damagedChunks = 0;
};

}  // namespace Brantel::Tracks
