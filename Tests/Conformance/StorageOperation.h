#pragma once

#include <CommonMessages.pb.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

// What can be done to a storage; behind each the meaning of its numbers. A slot holds one open
// reader or writer of the test.
enum class Verb : std::uint8_t {
    Create,         // track (0: any), size
    Grow,           // track, size
    Delete,         // track
    Clear,          // track
    CutOff,         // 0 create, 1 grow, 2 delete; track, size: asked for, then the server is ended
    OpenReader,     // slot, track
    CloseReader,    // slot
    OpenWriter,     // slot, track
    CloseWriter,    // slot
    Append,         // slot, time point, duration, size of its data, shape: see ChunkOf
    GetChunk,       // slot, time point, keys: see KeysOf
    NextChunk,      // the same
    PreviousChunk,  // the same
    NextTime,       // slot, time point
    PreviousTime,   // the same
    Wait,           // slot, time point, timeout in milliseconds
    ReaderTrack,    // slot
    WriterTrack,    // slot
    Beginning,      // track
    End,            // track
    Size,           // track
    Infos,          // three tracks
    ListTracks,
    Count,             // track, in, out
    Duration,          // the same
    SetProperties,     // track, two properties: see PropertyOf
    RemoveProperties,  // the same
    GetProperties,     // track
    Protect,           // track, time point, duration
    Unprotect,         // which of those that there are; from the end on, an unknown one
    ListProtections,
    ListWorkers,
    DescribeWorkers,  // which of those that there are; two of them, and an unknown one between
    DescribeCommand,  // which of those that were asked for, the last first; others are unknown
    ListOngoing,
    RemainingSpace,
    Inspect,  // track: everything that can be asked of it
    Restart,  // the server ends in good order and starts again
    Crash,    // it is killed
};

struct StorageOperation {
    Verb verb = Verb::ListTracks;
    std::array<std::int64_t, 5> numbers{};
};

constexpr std::int64_t highestTrack = 5;
constexpr std::size_t slotCount = 4;

// As text, and back; a sequence is separated by semicolons.
std::string ToText(const StorageOperation& operation);
std::string ToText(const std::vector<StorageOperation>& operations);
std::vector<StorageOperation> FromText(const std::string& text);

// The same seed gives the same operations.
std::vector<StorageOperation> MakeOperations(std::uint64_t seed, std::size_t count);

Protocol::Chunk ChunkOf(const StorageOperation& append);
Protocol::KeyList KeysOf(std::int64_t number);
// A key and a value; among them settings of the track, good and bad ones, and an empty key.
std::pair<std::string, std::string> PropertyOf(std::int64_t number);
// Everything in a chunk, its data by size and checksum.
std::string Describe(const Protocol::Chunk& chunk);

}  // namespace Brantel::Tracks
