#pragma once

#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Services {
class IServiceConnection;
}
namespace BrantelStorageApi {
class Client;
}

namespace Brantel::ProtocolX {

class StorageReaderX;
class StorageWriterX;

// What an application holds to talk to one track storage: one connection, the operations on tracks,
// and the readers and writers that it handed out, all of which it owns.
//
// Not connected, the operations answer with a neutral value (named below) and ask nobody.
// Connected, each is one exchange with the storage. What the storage refuses is thrown as
// std::runtime_error, "Exception from server: " and its text. A connection found lost is thrown as
// SocketDisconnected by the connections of this project; a connection whose Send or Receive answers
// false instead leaves the result at its neutral value. Connected() does not notice either.
//
// The operations may be called by several threads at once: exchanges happen one after the other.
// Connecting, disconnecting, the destructor and everything about readers and writers may not run
// beside any other call on the same client.
class StorageClientX {
  public:
    // `size` in bytes; `commandId` names the command that carries the change out (GetCommandInfo).
    struct TrackParameters {
        long id = 0;
        long size = 0;
        long commandId = 0;
    };

    // `tpOut`: time point plus duration of the last chunk; `size`: bytes used of `capacity`.
    struct TrackInfo {
        long trackId = 0;
        Time::TimePoint tpIn;
        Time::TimePoint tpOut;
        long size = 0;
        long capacity = 0;
    };

    // One protection; `handle` is what Protect returned.
    struct ProtectionInfos {
        long handle = 0;
        long trackId = 0;
        Time::TimePoint tcIn;
        Time::TimePoint tcOut;
    };

    enum WorkerType : std::int32_t { NONE = 0, READER = 1, WRITER = 2 };

    // One open reader or writer of any client.
    struct WorkerInfo {
        WorkerType type = NONE;
        long workerId = 0;
        long connectionId = 0;
        long throughput = 0;
        long trackId = 0;
        std::string clientIpV4Address;
    };

    enum CommandType : std::int32_t {
        NOT_EXIST = 0,
        FINISHED = 1,
        CANCELED = 2,
        QUEUED = 3,
        ONGOING = 4
    };

    struct CommandInfo {
        CommandType type = NOT_EXIST;
        long progression = 0;
    };

    using Properties = std::map<std::string, std::string>;

    // Not connected.
    StorageClientX();
    // Destroys all readers and writers, each of which tells the storage, then ends the connection.
    virtual ~StorageClientX();
    StorageClientX(const StorageClientX&) = delete;
    StorageClientX& operator=(const StorageClientX&) = delete;

    // Ends the present connection, if any, and connects over TCP, over a Unix-domain socket, or
    // over a connection that is given (null: none). Returns false, not connected, when a
    // std::runtime_error says that it can't be done; the old connection is gone then too.
    // `timeout`: milliseconds for the connect, 0 waits as long as the system does. `port` is taken
    // as an unsigned number of the same bits.
    //
    // Readers and writers still open tell the storage that they end, but keep their keys and their
    // addresses: they stay registered and answer like ones without a remote object. Close them
    // first.
    bool ConnectToSlave(const std::string& host, short port, unsigned int timeout);
    bool ConnectToSlave(const std::string& path);
    bool ConnectToSlave(std::unique_ptr<Services::IServiceConnection> newConnection);

    // Ends the connection, if any, with readers and writers treated as by ConnectToSlave.
    void Disconnect();

    // Whether a connection was made; not whether the other side is still there.
    bool Connected() const;

    // The version of this interface: 2, 1, 5.
    void GetVersion(int& major, int& minor, int& revision);

    // Not connected: all three 0. Creating and growing send `id` and `size`.
    TrackParameters CreateTrack(const TrackParameters& parameters);
    TrackParameters GrowTrack(const TrackParameters& parameters);
    TrackParameters DeleteTrack(long trackId);
    void ClearTrack(long trackId);
    // Bytes; -1 not connected, 0 when the exchange failed.
    long GetTrackSize(long trackId);
    // Bytes; -1 not connected or when the exchange failed.
    long GetRemainingSpace();
    std::vector<long> ListTracks();
    // The first of `trackIds` that the storage doesn't list; 0 when it lists all.
    long TracksCreated(const std::vector<long>& trackIds);

    std::vector<ProtectionInfos> ListProtections();
    // TimePoint::Nanoseconds(-1) not connected, 0 nanoseconds when the exchange failed.
    Time::TimePoint GetBeginningOfTrack(long trackId);
    Time::TimePoint GetEndOfTrack(long trackId);
    // The latest end of these tracks (one exchange for each), but not before 0 nanoseconds.
    Time::TimePoint GetHighestTimePoint(const std::vector<long>& trackIds);
    // Protects [in, out) and returns the protection's identifier; -1 not connected or when the
    // exchange failed.
    long Protect(long trackId, Time::TimePoint in, Time::TimePoint out);
    void Unprotect(long protectionId);
    // The chunks with a time point in [in, out): their number and the sum of their durations; 0 not
    // connected.
    long GetNumberOfChunks(const long& trackId, const Time::TimePoint& in,
                           const Time::TimePoint& out);
    Time::TimePoint GetAccumulatedDuration(const long& trackId, const Time::TimePoint& in,
                                           const Time::TimePoint& out);

    // Setting and removing throw std::runtime_error for an empty key; nothing is sent then. The
    // values of what is to be removed are ignored.
    void SetTrackProperties(long trackId, const Properties& properties);
    Properties GetTrackProperties(long trackId);
    void RemoveTrackProperties(long trackId, const Properties& properties);

    std::vector<long> GetOngoingCommands();
    CommandInfo GetCommandInfo(long commandId);
    // Pairs of a worker and its track.
    std::vector<std::pair<long, long>> GetWorkerIds();
    std::vector<WorkerInfo> GetWorkerInfos(const std::vector<long>& workerIds);
    std::vector<TrackInfo> GetTrackInfos(const std::vector<long>& trackIds);

    // The reader that is registered for this track and this number of the application's choosing,
    // or a new one. The client owns it. Throws std::runtime_error when not connected, and what the
    // storage refuses; nothing is registered then.
    IStorageReaderX* GetTrackReader(long trackId, long readerId);
    // The same for the track's only writer.
    IStorageWriterX* GetTrackWriter(long trackId);
    // Destroys the reader or writer, if there is one.
    void CloseTrackReader(long trackId, long readerId);
    void CloseTrackWriter(long trackId);
    bool IsReader(long trackId, long readerId) const;
    // The largest reader number of the track, at least 0.
    long GetMaxReaderId(long trackId) const;

  private:
    template <typename MakeConnection>
    bool Connect(MakeConnection makeConnection);
    void EndConnection();

    std::unique_ptr<Services::IServiceConnection> connection;
    std::unique_ptr<BrantelStorageApi::Client> client;
    std::map<std::pair<long, long>, std::unique_ptr<StorageReaderX>> readers;
    std::map<long, std::unique_ptr<StorageWriterX>> writers;
};

}  // namespace Brantel::ProtocolX
