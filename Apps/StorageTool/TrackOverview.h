#pragma once

#include <libProtocolX/StorageClientX.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Tool {

class Context;
class JsonObject;

// Everything that the storage knows of one track without reading a chunk. The questions are asked
// one after the other: a track that is written meanwhile may be a little further in the later ones.
struct TrackOverview {
    using Client = ProtocolX::StorageClientX;

    // Of these tracks in this order, or of all when there are none; a track that is deleted
    // meanwhile is left out. A few exchanges, and two for each track; its properties are one more.
    static std::vector<TrackOverview> Read(Context& context, std::vector<long> tracks,
                                           bool withProperties);

    // Nanoseconds from the first chunk's time point to the last one's end.
    std::int64_t Span() const;
    // Nanoseconds of the span that no chunk covers; 0 also when chunks overlap.
    std::int64_t Gaps() const;
    // Payload and what the storage adds, for each second that chunks cover; 0 without such.
    double BitsPerSecond() const;
    // The part of the capacity in use, 0 to 1.
    double Filling() const;

    // All of the above as members of an object.
    void AddTo(JsonObject& object, const Context& context) const;

    Client::TrackInfo info;
    std::int64_t chunks = 0;
    // Sum of the chunks' durations, nanoseconds.
    std::int64_t covered = 0;
    Client::Properties properties;
    std::vector<Client::ProtectionInfos> protections;
    std::optional<Client::WorkerInfo> writer;
    std::vector<Client::WorkerInfo> readers;
};

}  // namespace Brantel::Tool
