#pragma once

#include "Role.h"

#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>

#include <memory>
#include <utility>

namespace Brantel::Server {

// The storage as one connection may use it: what the connection's role allows goes on to the
// storage, everything else is refused with "Permission denied: ClearTrack needs role admin".
class GuardedStorage : public BrantelStorageApi::ITrackStorage {
  public:
    GuardedStorage(std::unique_ptr<ITrackStorage> storage, Role role)
        : storage(std::move(storage)), role(role) {}

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
    const Role role;
};

// Makes readers for those who may read.
class GuardedReaderFactory : public BrantelStorageApi::ITrackReaderFactory {
  public:
    GuardedReaderFactory(std::unique_ptr<ITrackReaderFactory> factory, Role role)
        : factory(std::move(factory)), role(role) {}

    BrantelStorageApi::ITrackReader* CreateTrackReader(const long& trackId) override;

  private:
    const std::unique_ptr<ITrackReaderFactory> factory;
    const Role role;
};

// Makes writers for those who may write.
class GuardedWriterFactory : public BrantelStorageApi::ITrackWriterFactory {
  public:
    GuardedWriterFactory(std::unique_ptr<ITrackWriterFactory> factory, Role role)
        : factory(std::move(factory)), role(role) {}

    BrantelStorageApi::ITrackWriter* CreateTrackWriter(const long& trackId) override;

  private:
    const std::unique_ptr<ITrackWriterFactory> factory;
    const Role role;
};

}  // namespace Brantel::Server
