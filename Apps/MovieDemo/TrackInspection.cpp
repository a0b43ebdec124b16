#include "TrackInspection.h"

#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Brantel::MovieDemo {

using ProtocolX::StorageClientX;
using Time::TimePoint;

void TrackInspection::CheckInfos() {
    const long track = recorded.id;
    const std::vector<StorageClientX::TrackInfo> infos = client.GetTrackInfos({track});
    comparison.Numbers("the number of infos", static_cast<long>(infos.size()), 1);
    const StorageClientX::TrackInfo& info = infos.front();
    comparison.Numbers("the track of the info", info.trackId, track);
    comparison.TimePoints("the info's beginning", info.tpIn, movie.TimeOf(0));
    comparison.TimePoints("the info's end", info.tpOut, movie.End());
    comparison.Numbers("the info's capacity", info.capacity, recorded.capacity);
    comparison.Holds("the bytes in use are those of the pictures or more, and fit the capacity",
                     info.size >= static_cast<long>(movie.Bytes()) && info.size <= info.capacity);
    comparison.Numbers("the size of the track", client.GetTrackSize(track), recorded.capacity);
    comparison.TimePoints("the beginning of the track", client.GetBeginningOfTrack(track),
                          movie.TimeOf(0));
    comparison.TimePoints("the end of the track", client.GetEndOfTrack(track), movie.End());
    comparison.TimePoints("the highest time point", client.GetHighestTimePoint({track}),
                          movie.End());
}

void TrackInspection::CheckCounts() {
    const long track = recorded.id;
    const auto compare = [&](const std::string& what, TimePoint in, TimePoint out,
                             std::size_t expected) {
        const auto count = static_cast<long>(expected);
        comparison.Numbers("the number of chunks in " + what,
                           client.GetNumberOfChunks(track, in, out), count);
        comparison.TimePoints(
            "the duration of the chunks in " + what, client.GetAccumulatedDuration(track, in, out),
            TimePoint::Nanoseconds(count * Movie::FrameDuration().ToNanoseconds()));
    };
    const std::size_t all = movie.FrameCount();
    const TimePoint begin = movie.TimeOf(0);
    const TimePoint nanosecond = TimePoint::Nanoseconds(1);
    compare("the whole time", TimePoint(), TimePoint::GetHighestTimePoint(), all);
    compare("the time of the track", begin, movie.End(), all);
    compare("the track without its first nanosecond", begin + nanosecond, movie.End(), all - 1);
    compare("the track up to its last time point", begin, movie.TimeOf(all - 1), all - 1);
    compare("the first half", begin, movie.TimeOf(all / 2), all / 2);
    compare("an interval that ends where it begins", begin, begin, 0);
}

void TrackInspection::CheckProperties() {
    const long track = recorded.id;
    StorageClientX::Properties expected = recorded.properties;
    comparison.Holds("the track has the properties it was given",
                     client.GetTrackProperties(track) == expected);
    const StorageClientX::Properties changes = {{"title", "Another title"}, {"reel", "7"}};
    client.SetTrackProperties(track, changes);
    for (const auto& [key, value] : changes) {
        expected[key] = value;
    }
    comparison.Holds("one property was replaced and one added",
                     client.GetTrackProperties(track) == expected);
    client.SetTrackProperties(track, recorded.properties);
    client.RemoveTrackProperties(track, {{"reel", ""}, {"unknown", ""}});
    comparison.Holds("the added property was removed",
                     client.GetTrackProperties(track) == recorded.properties);
}

void TrackInspection::CheckProtection() {
    const long track = recorded.id;
    const TimePoint in = movie.TimeOf(movie.FrameCount() / 4);
    const TimePoint out = movie.TimeOf(movie.FrameCount() / 2);
    comparison.Numbers("the number of protections before the first",
                       static_cast<long>(client.ListProtections().size()), 0);
    const long protection = client.Protect(track, in, out);
    const std::vector<StorageClientX::ProtectionInfos> held = client.ListProtections();
    comparison.Numbers("the number of protections", static_cast<long>(held.size()), 1);
    comparison.Numbers("the protection's id", held.front().handle, protection);
    comparison.Numbers("the protection's track", held.front().trackId, track);
    comparison.TimePoints("the protection's beginning", held.front().tcIn, in);
    comparison.TimePoints("the protection's end", held.front().tcOut, out);
    bool deleted = true;
    try {
        client.DeleteTrack(track);
    } catch (const std::runtime_error&) {
        deleted = false;
    }
    comparison.Holds("a protected track is not deleted", !deleted);
    client.Unprotect(protection);
    comparison.Numbers("the number of protections after the last",
                       static_cast<long>(client.ListProtections().size()), 0);
}

void TrackInspection::CheckWorkers(const std::string& writerAddress,
                                   const std::string& readerAddress) {
    std::vector<long> ids;
    for (const auto& [worker, track] : client.GetWorkerIds()) {
        if (track == recorded.id) {
            ids.push_back(worker);
        }
    }
    comparison.Numbers("the number of workers", static_cast<long>(ids.size()), 2);
    std::map<StorageClientX::WorkerType, StorageClientX::WorkerInfo> workers;
    for (const StorageClientX::WorkerInfo& info : client.GetWorkerInfos(ids)) {
        workers[info.type] = info;
    }
    const StorageClientX::WorkerInfo& writer = workers[StorageClientX::WRITER];
    const StorageClientX::WorkerInfo& reader = workers[StorageClientX::READER];
    comparison.Numbers("the writer's track", writer.trackId, recorded.id);
    comparison.Numbers("the reader's track", reader.trackId, recorded.id);
    comparison.Holds("writer and reader use different connections",
                     writer.connectionId != reader.connectionId);
    comparison.Bytes("the writer's address", writer.clientIpV4Address, writerAddress);
    comparison.Bytes("the reader's address", reader.clientIpV4Address, readerAddress);
}

}  // namespace Brantel::MovieDemo
