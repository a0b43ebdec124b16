#pragma once

#include <libProtocolX/rpc/ITrackStorage.h>

namespace Brantel::Services {
class IServiceConnection;
class NativeMutex;
}  // namespace Brantel::Services

namespace BrantelStorageApi {

// The storage at the other end of a connection. Every operation is one exchange on it and throws
// std::runtime_error "Exception from server: " and the server's text when the server reports a
// failure, "Could not lock mutex", and what the connection throws. When the connection reports its
// failure by a result, the operation returns normally and leaves its outputs as they were.
// Any thread may call; calls on one connection wait for each other. Part of a Client.
class ClientTrackStorage : public ITrackStorage {
  public:
    // Borrows both; sends nothing.
    ClientTrackStorage(Brantel::Services::IServiceConnection& connection,
                       Brantel::Services::NativeMutex& mutex);
    ~ClientTrackStorage() override = default;
    ClientTrackStorage(const ClientTrackStorage&) = delete;
    ClientTrackStorage& operator=(const ClientTrackStorage&) = delete;

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
    Brantel::Services::IServiceConnection& connection;
    Brantel::Services::NativeMutex& mutex;
};

}  // namespace BrantelStorageApi
