#pragma once

#include <libEngine/EngineTypes.h>
#include <libTracks/TrackSettings.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace Brantel::Tracks {

// What a server can choose for its storage. Constant once the storage has been made.
struct StorageOptions {
    // Of tracks without a storage.durability of their own.
    Engine::Durability durability;
    // Of tracks without a storage.retention of their own.
    TrackSettings::Retention retention = TrackSettings::Retention::Loop;
    // The segments of small tracks, in bytes: a multiple of 4096, at least 12288. A track's
    // segments are otherwise 1/32 of the capacity that it was created with, at most 256 MiB; the
    // largest chunk of a track is one segment less 8192 bytes.
    std::uint32_t smallestSegmentBytes = 1U << 20U;
    // Segments that are reserved for each track beside those for its capacity, at least 3: the
    // first and the last one of a log are only partly used, and held chunks are moved into a free
    // one. With chunks larger than 1/32 of a segment, or many protections, a track has to recycle
    // before its capacity is used up; each spare segment more puts that off.
    std::uint64_t spareSegments = 4;
    // Memory for the indexes of sealed segments, all tracks together, in bytes.
    std::size_t entryCacheBytes = std::size_t{64} << 20U;
    // Ended commands that stay known.
    std::size_t commandHistory = 1000;
    // Keys and values of one track's properties together, in bytes.
    std::size_t propertiesLimitBytes = std::size_t{512} << 10U;
    // Readers and writers that can be open at the same time, all connections together.
    std::size_t workersLimit = 100000;
    // Protections that one track can have.
    std::size_t protectionsLimit = 10000;
    // Told what an operator should know: damage, lost files, what was undone at the start. Called
    // on any thread, sometimes with a lock held: it must be quick and must not call the storage.
    std::function<void(const std::string&)> log = [](const std::string&) {};
    // The time that throughput is measured by.
    std::function<std::chrono::steady_clock::time_point()> clock = std::chrono::steady_clock::now;
};

}  // namespace Brantel::Tracks
