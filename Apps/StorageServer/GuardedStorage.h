#pragma once

#include "ClientSession.h"

#include <libProtocolX/rpc/ITrackStorage.h>

#include <memory>
#include <utility>

namespace Brantel::Server {

// The storage as one connection may use it: what the client's role and the limits allow goes on to
// the storage, everything else is refused with "Permission denied: ClearTrack needs role admin" or
// "70000 ids in one request are over the limit of 65536".
class GuardedStorage : public BrantelStorageApi::ITrackStorage {
  public:
    // The session is shared with the connection's other adapters: they have no owner in common that
    // could keep it.
    GuardedStorage(std::unique_ptr<ITrackStorage> storage, std::shared_ptr<ClientSession> session)
        : storage(std::move(storage)), session(std::move(session)) {}

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
    const std::unique_ptr<ITrackStorage> storage;
    const std::shared_ptr<ClientSession> session;
};

}  // namespace Brantel::Server
