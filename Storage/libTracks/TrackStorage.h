#pragma once

#include <libProtocolX/rpc/ITrackStorage.h>

namespace Brantel::Tracks {

class StorageCore;

// The storage as one connection sees it. Used by one thread at a time.
class TrackStorage : public BrantelStorageApi::ITrackStorage {
  public:
    // `core` is borrowed.
    explicit TrackStorage(StorageCore& core) : core(core) {}

    void GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) override;
    void GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                           const Protocol::TimePoint& out, long& nbChunks) override;
    void DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) override;
    void GetTrackSize(const long& trackId, long& trackSize) override;
    void GetTrackInfos(const Protocol::Ids& trackIds, Protocol::TrackInfos& trackInfos) override;
    void RemoveTrackProperties(const long& trackId,
                               const Protocol::PropertyList& properties) override;
    void GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) override;
    void GrowTrack(const Protocol::TrackParameters& infoIn,
                   Protocol::TrackParameters& infoOut) override;
    void GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) override;
    void GetRemainingSpace(long& remainingSpace) override;
    void GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) override;
    void ClearTrack(const long& trackId) override;
    void GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                const Protocol::TimePoint& out,
                                Protocol::TimePoint& duration) override;
    void Protect(const long& trackId, const Protocol::TimePoint& timecode,
                 const Protocol::TimePoint& duration, long& protectionId) override;
    void GetWorkerInfos(const Protocol::Ids& workerIds,
                        Protocol::WorkerInfos& workerInfos) override;
    void Unprotect(const long& protectionId) override;
    void GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) override;
    void ListProtections(Protocol::ProtectionInfos& protectionInfos) override;
    void CreateTrack(const Protocol::TrackParameters& infoIn,
                     Protocol::TrackParameters& infoOut) override;
    void GetOngoingCommands(Protocol::Ids& commandIds) override;
    void SetTrackProperties(const long& trackId, const Protocol::PropertyList& properties) override;
    void ListTracks(Protocol::TrackList& list) override;

  private:
    StorageCore& core;
};

}  // namespace Brantel::Tracks
