#pragma once

#include "Conformance/StorageDriver.h"
#include "Conformance/StorageOperation.h"

#include <CommonMessages.pb.h>
#include <libTracks/StorageOptions.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Brantel::Tracks {

// What a storage must answer, by the rules and nothing else: maps of everything, looked through
// from end to end. It knows no engine; of segments it knows how much they reserve and how large a
// chunk can be.
class ReferenceStorage {
  public:
    // `limit`: bytes that can be reserved.
    ReferenceStorage(const StorageOptions& options, std::uint64_t limit)
        : options(options), limit(limit) {}

    // Puts identifiers in place of "which of those".
    StorageOperation Resolve(const StorageOperation& operation) const;

    // The only right answer to a resolved operation. What the rules leave open is taken from the
    // answer that was given, when it is allowed: new identifiers must never have been used before.
    std::string Expect(const StorageOperation& operation, const Answer& given);

    // After an append to a track whose segments are short, which recycles earlier than the capacity
    // asks for, or after an Unprotect there: takes over what the track holds. "": this is allowed,
    // else what is wrong.
    std::string Adopt(const StorageOperation& operation, const std::vector<std::int64_t>& times);
    // The track that an Append or an Unprotect is about.
    std::int64_t TrackOf(const StorageOperation& operation) const;

  private:
    using Numbers = std::array<std::int64_t, 5>;

    // Where a held chunk is: where the recycling comes past, or safe from it. It matters when its
    // last protection ends: what is safe goes at once, the other stays until it is recycled.
    enum class Place { Ring, Held, Either };

    struct Chunk {
        Protocol::Chunk message;
        std::int64_t duration = 0;
        std::uint64_t cost = 0;
        Place place = Place::Ring;
    };
    struct Protection {
        std::int64_t track = 0;
        std::int64_t time = 0;
        std::int64_t duration = 0;
    };
    struct Track {
        std::uint64_t capacity = 0;
        std::uint64_t segmentSize = 0;
        std::map<std::int64_t, Chunk> chunks;
        std::map<std::string, std::string> properties;
    };
    struct Worker {
        std::int64_t id = 0;  // 0: the slot is empty
        std::int64_t track = 0;
        std::uint64_t payload = 0;
    };
    struct Room {
        std::string error;
        std::vector<std::int64_t> dropped;
        std::vector<std::int64_t> carried;
    };

    std::string Dispatch(const StorageOperation& operation, const Answer& given);
    std::string ExpectCreate(std::int64_t id, std::int64_t size, const Answer& given);
    std::string ExpectGrow(std::int64_t id, std::int64_t size, const Answer& given);
    std::string ExpectDelete(std::int64_t id, const Answer& given);
    std::string ExpectCutOff(const Numbers& numbers, const Answer& given);
    std::string ExpectClear(std::int64_t id);
    std::string ExpectWorker(Verb verb, const Numbers& numbers, const Answer& given);
    std::string ExpectAppend(const StorageOperation& operation);
    std::string ExpectRead(Verb verb, const Numbers& numbers);
    std::string ExpectLook(Verb verb, const Numbers& numbers);
    std::string ExpectSums(Verb verb, const Numbers& numbers);
    std::string ExpectProperties(Verb verb, const Numbers& numbers);
    std::string ExpectProtect(const Numbers& numbers, const Answer& given);
    std::string ExpectUnprotect(std::int64_t id);
    std::string ExpectList(Verb verb, const Numbers& numbers, const Answer& given);
    std::string CheckSpace(std::int64_t space) const;
    std::string ListProtections() const;
    std::string ListWorkers() const;
    std::string DescribeWorker(std::int64_t id) const;
    std::string Inspect(std::int64_t id) const;
    std::string InspectAll() const;

    Track& Get(std::int64_t id);
    const Track& Get(std::int64_t id) const;
    static std::uint64_t SizeOf(const Track& track);
    static std::int64_t BeginningOf(const Track& track);
    static std::int64_t EndOf(const Track& track);
    static std::string CheckChunk(std::int64_t id, const Protocol::Chunk& chunk);
    static std::uint64_t CostOf(const Protocol::Chunk& chunk);
    Room MakeRoom(std::int64_t id, std::uint64_t cost) const;
    bool IsHeld(std::int64_t track, std::int64_t time, std::int64_t duration) const;
    const Chunk* FindCovering(const Track& track, std::int64_t time) const;
    std::string Infos(const std::vector<std::int64_t>& ids) const;
    std::string TakeCommand(const Answer& given, const std::string& state);
    std::uint64_t SegmentSizeFor(std::uint64_t capacity) const;
    std::uint64_t Reserved(std::uint64_t capacity, std::uint64_t segmentSize) const;
    std::uint64_t Available() const;
    void EndServer();
    std::string AdoptAppend(std::int64_t id, const std::vector<std::int64_t>& times);
    std::string AdoptUnprotect(std::int64_t id, const std::vector<std::int64_t>& times);

    const StorageOptions options;
    const std::uint64_t limit;
    std::map<std::int64_t, Track> tracks;
    std::map<std::int64_t, Protection> protections;
    std::map<std::int64_t, std::string> commands;  // those that are known, and how they ended
    std::array<Worker, slotCount> readers;
    std::array<Worker, slotCount> writers;
    std::int64_t lastCommand = 0;
    std::int64_t lastProtection = 0;
    std::int64_t lastWorker = 0;
};

}  // namespace Brantel::Tracks
