#include "TrackStorage.h"

#include "StorageCore.h"
#include "TimeMessages.h"
#include "Track.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace Brantel::Tracks {

void TrackStorage::ListTracks(Protocol::TrackList& list) {
    for (const auto& track : core.tracks.List()) {
        if (track->IsReady()) {
            list.add_trackids(static_cast<std::uint64_t>(track->GetId()));
        }
    }
}

void TrackStorage::GetTrackInfos(const Protocol::Ids& trackIds, Protocol::TrackInfos& trackInfos) {
    for (const std::uint64_t id : trackIds.ids()) {
        const std::shared_ptr<Track> track = core.tracks.Find(static_cast<std::int64_t>(id));
        if (track && track->IsReady()) {
            track->Describe(*trackInfos.add_infos());
        }
    }
}

void TrackStorage::GetTrackSize(const long& trackId, long& trackSize) {
    trackSize = static_cast<long>(core.GetTrack(trackId)->GetCapacity());
}

void TrackStorage::GetRemainingSpace(long& remainingSpace) {
    remainingSpace = core.commands.GetRemainingSpace();
}

void TrackStorage::CreateTrack(const Protocol::TrackParameters& infoIn,
                               Protocol::TrackParameters& infoOut) {
    core.commands.Create(static_cast<std::int64_t>(infoIn.id()),
                         static_cast<std::int64_t>(infoIn.size()), infoOut);
}

void TrackStorage::GrowTrack(const Protocol::TrackParameters& infoIn,
                             Protocol::TrackParameters& infoOut) {
    core.commands.Grow(static_cast<std::int64_t>(infoIn.id()),
                       static_cast<std::int64_t>(infoIn.size()), infoOut);
}

void TrackStorage::DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) {
    core.commands.Delete(trackId, infoOut);
}

void TrackStorage::ClearTrack(const long& trackId) {
    core.GetTrack(trackId)->Clear();
}

void TrackStorage::GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    ToMessage(core.GetTrack(trackId)->GetBeginning(), timecode);
}

void TrackStorage::GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    ToMessage(core.GetTrack(trackId)->GetEnd(), timecode);
}

void TrackStorage::GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                     const Protocol::TimePoint& out, long& nbChunks) {
    nbChunks = core.GetTrack(trackId)->GetNumberOfChunks(FromMessage(in), FromMessage(out));
}

void TrackStorage::GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                          const Protocol::TimePoint& out,
                                          Protocol::TimePoint& duration) {
    ToMessage(core.GetTrack(trackId)->GetAccumulatedDuration(FromMessage(in), FromMessage(out)),
              duration);
}

void TrackStorage::GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) {
    core.GetTrack(trackId)->GetProperties(properties);
}

void TrackStorage::SetTrackProperties(const long& trackId,
                                      const Protocol::PropertyList& properties) {
    core.GetTrack(trackId)->SetProperties(properties);
}

void TrackStorage::RemoveTrackProperties(const long& trackId,
                                         const Protocol::PropertyList& properties) {
    core.GetTrack(trackId)->RemoveProperties(properties);
}

void TrackStorage::Protect(const long& trackId, const Protocol::TimePoint& timecode,
                           const Protocol::TimePoint& duration, long& protectionId) {
    const std::shared_ptr<Track> track = core.GetTrack(trackId);
    Protections::Check(trackId, {FromMessage(timecode), FromMessage(duration)});
    const std::int64_t id = core.protectionIds.Next();
    track->Protect(id, FromMessage(timecode), FromMessage(duration));
    protectionId = id;
}

void TrackStorage::Unprotect(const long& protectionId) {
    for (const auto& track : core.tracks.List()) {
        if (track->HasProtection(protectionId) && track->Unprotect(protectionId)) {
            return;
        }
    }
    throw std::runtime_error("Protection " + std::to_string(protectionId) + " does not exist");
}

void TrackStorage::ListProtections(Protocol::ProtectionInfos& protectionInfos) {
    for (const auto& track : core.tracks.List()) {
        track->ListProtections(protectionInfos);
    }
}

void TrackStorage::GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    core.workers.List(workerIds, trackIds);
}

void TrackStorage::GetWorkerInfos(const Protocol::Ids& workerIds,
                                  Protocol::WorkerInfos& workerInfos) {
    core.workers.Describe(workerIds, workerInfos);
}

void TrackStorage::GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) {
    core.commands.Describe(commandId, commandInfo);
}

void TrackStorage::GetOngoingCommands(Protocol::Ids& commandIds) {
    core.commands.ListOngoing(commandIds);
}

}  // namespace Brantel::Tracks
