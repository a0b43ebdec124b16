#include "TrackOverview.h"

#include "Context.h"
#include "JsonObject.h"
#include "WorkerList.h"

#include <libTime/TimePoint.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;
using Time::TimePoint;

namespace {

// What is asked of all tracks at once.
struct Surroundings {
    std::vector<StorageClientX::ProtectionInfos> protections;
    std::vector<StorageClientX::WorkerInfo> workers;
};

Surroundings ReadSurroundings(StorageClientX& client) {
    Surroundings result;
    result.protections = client.ListProtections();
    result.workers = WorkerList::Read(client);
    return result;
}

void ReadChunks(StorageClientX& client, TrackOverview& track, bool withProperties) {
    const long id = track.info.trackId;
    const TimePoint begin = TimePoint::Nanoseconds(0);
    const TimePoint end = TimePoint::GetHighestTimePoint();
    track.chunks = client.GetNumberOfChunks(id, begin, end);
    track.covered = client.GetAccumulatedDuration(id, begin, end).ToNanoseconds();
    if (withProperties) {
        track.properties = client.GetTrackProperties(id);
    }
}

// False when the track has been deleted.
bool Complete(StorageClientX& client, TrackOverview& track, bool withProperties) {
    try {
        ReadChunks(client, track, withProperties);
        return true;
    } catch (const std::runtime_error&) {
        // Only the storage knows whether it is gone; a lost connection is reported by the question.
        if (client.GetTrackInfos({track.info.trackId}).empty()) {
            return false;
        }
        throw;
    }
}

void Distribute(const Surroundings& surroundings, TrackOverview& track) {
    for (const auto& protection : surroundings.protections) {
        if (protection.trackId == track.info.trackId) {
            track.protections.push_back(protection);
        }
    }
    for (const auto& worker : surroundings.workers) {
        if (worker.trackId != track.info.trackId) {
            continue;
        }
        if (worker.type == StorageClientX::WRITER) {
            track.writer = worker;
        } else if (worker.type == StorageClientX::READER) {
            track.readers.push_back(worker);
        }
    }
}

JsonObject Describe(const StorageClientX::WorkerInfo& worker) {
    JsonObject object;
    object.Add("worker", worker.workerId)
        .Add("connection", worker.connectionId)
        .Add("bytesPerSecond", worker.throughput)
        .Add("client", std::string_view(worker.clientIpV4Address));
    return object;
}

JsonObject Describe(const StorageClientX::ProtectionInfos& protection, const Context& context) {
    JsonObject object;
    object.Add("protection", protection.handle);
    context.AddTime(object, "from", protection.tcIn);
    context.AddTime(object, "to", protection.tcOut);
    return object;
}

}  // namespace

std::vector<TrackOverview> TrackOverview::Read(Context& context, std::vector<long> tracks,
                                               bool withProperties) {
    return context.Ask([&](StorageClientX& client) {
        if (tracks.empty()) {
            tracks = client.ListTracks();
        }
        std::vector<TrackOverview> result;
        if (tracks.empty()) {
            return result;
        }
        const Surroundings surroundings = ReadSurroundings(client);
        for (const StorageClientX::TrackInfo& info : client.GetTrackInfos(tracks)) {
            TrackOverview track;
            track.info = info;
            if (Complete(client, track, withProperties)) {
                Distribute(surroundings, track);
                result.push_back(std::move(track));
            }
        }
        return result;
    });
}

std::int64_t TrackOverview::Span() const {
    return info.tpOut.ToNanoseconds() < 0 ? 0 : (info.tpOut - info.tpIn).ToNanoseconds();
}

std::int64_t TrackOverview::Gaps() const {
    return std::max<std::int64_t>(0, Span() - covered);
}

double TrackOverview::BitsPerSecond() const {
    constexpr double bitsPerByte = 8;
    constexpr double nanoseconds = 1e9;
    return covered <= 0 ? 0
                        : static_cast<double>(info.size) * bitsPerByte * nanoseconds /
                              static_cast<double>(covered);
}

double TrackOverview::Filling() const {
    return info.capacity <= 0 ? 0
                              : static_cast<double>(info.size) / static_cast<double>(info.capacity);
}

void TrackOverview::AddTo(JsonObject& object, const Context& context) const {
    object.Add("track", info.trackId).Add("size", info.size).Add("capacity", info.capacity);
    context.AddTime(object, "from", info.tpIn);
    context.AddTime(object, "to", info.tpOut);
    object.Add("chunks", chunks)
        .Add("coveredNanoseconds", covered)
        .Add("gapNanoseconds", Gaps())
        .Add("bitsPerSecond", BitsPerSecond());
    std::vector<JsonObject> held;
    for (const auto& protection : protections) {
        held.push_back(Describe(protection, context));
    }
    object.Add("protections", held);
    if (writer) {
        object.Add("writer", Describe(*writer));
    } else {
        object.AddNull("writer");
    }
    std::vector<JsonObject> reading;
    for (const auto& reader : readers) {
        reading.push_back(Describe(reader));
    }
    object.Add("readers", reading);
}

}  // namespace Brantel::Tool
