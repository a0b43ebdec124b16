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

// What programs use a storage through.
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
    // What a change of the tracks is asked for with, and what it answers.
    struct TrackParameters {
        long id = 0;         // of the track; 0 when one is created: the storage chooses
        long size = 0;       // the whole capacity in bytes
        long commandId = 0;  // names the command that carries the change out (GetCommandInfo)
    };

    // One track. Without a chunk both time points are TimePoint::Nanoseconds(-1).
    struct TrackInfo {
        long trackId = 0;       // of the track
        Time::TimePoint tpIn;   // of the first chunk
        Time::TimePoint tpOut;  // time point plus duration of the last chunk
        long size = 0;          // bytes used of `capacity`
        long capacity = 0;      // bytes
    };

    // One protection, of [tcIn, tcOut).
    struct ProtectionInfos {
        long handle = 0;        // what Protect returned
        long trackId = 0;       // of the track that it holds chunks of
        Time::TimePoint tcIn;   // where it begins
        Time::TimePoint tcOut;  // where it ends
    };

    // What an open worker does; NONE: there is no such worker.
    enum WorkerType : std::int32_t { NONE = 0, READER = 1, WRITER = 2 };

    // One open reader or writer of any client.
    struct WorkerInfo {
        WorkerType type = NONE;         // a reader, a writer, or none
        long workerId = 0;              // never used twice while the server runs
        long connectionId = 0;          // of the client's connection
        long throughput = 0;            // bytes of data a second, over the last seconds
        long trackId = 0;               // of the track that it works on
        std::string clientIpV4Address;  // as text; empty for a peer without one
    };

    // How far a command is. FINISHED and CANCELED are final; NOT_EXIST: unknown, or forgotten.
    enum CommandType : std::int32_t {
        NOT_EXIST = 0,
        FINISHED = 1,
        CANCELED = 2,
        QUEUED = 3,
        ONGOING = 4
    };

    // A command that creates, grows or deletes a track.
    struct CommandInfo {
        CommandType type = NOT_EXIST;  // how far it is
        long progression = 0;          // 0 to 100, percent
    };

    // Keys and values of a track's properties.
    using Properties = std::map<std::string, std::string>;

    // Not connected.
    StorageClientX();
    // Destroys all readers and writers, each of which tells the storage, then ends the connection.
    virtual ~StorageClientX();
    StorageClientX(const StorageClientX&) = delete;
    StorageClientX& operator=(const StorageClientX&) = delete;

    // Ends the present connection, if any, and connects over TCP. Returns false, not connected,
    // when a std::runtime_error says that it can't be done; the old connection is gone then too.
    // `timeout`: milliseconds for the connect, 0 waits as long as the system does. `port` is taken
    // as an unsigned number of the same bits.
    //
    // Readers and writers still open tell the storage that they end, but keep their keys and their
    // addresses: they stay registered and answer like ones without a remote object. Close them
    // first.
    bool ConnectToSlave(const std::string& host, short port, unsigned int timeout);
    // The same over the Unix-domain socket at this path.
    bool ConnectToSlave(const std::string& path);
    // The same over a connection that is given, and owned from then on; null: false.
    bool ConnectToSlave(std::unique_ptr<Services::IServiceConnection> newConnection);

    // Ends the connection, if any, with readers and writers treated as by ConnectToSlave.
    void Disconnect();

    // Whether a connection was made; not whether the other side is still there.
    bool Connected() const;

    // The version of this interface: 2, 1, 5.
    void GetVersion(int& major, int& minor, int& revision);

    // Asks for a track of `size` bytes with this `id`, 0: with one of the storage's choice. Returns
    // its identifier, its size as reserved, and the command, which must be FINISHED before the
    // track can be used. Not connected: all three 0.
    TrackParameters CreateTrack(const TrackParameters& parameters);
    // Gives the track `id` a capacity of `size` bytes, not less than it has; it stays usable
    // meanwhile. Answers as CreateTrack does.
    TrackParameters GrowTrack(const TrackParameters& parameters);
    // Deletes a track and its chunks; refused while it has protections, readers or a writer.
    // Answers as CreateTrack does.
    TrackParameters DeleteTrack(long trackId);
    // Drops all chunks that no protection holds. Not connected: nothing.
    void ClearTrack(long trackId);
    // Bytes; -1 not connected, 0 when the exchange failed.
    long GetTrackSize(long trackId);
    // Bytes; -1 not connected or when the exchange failed.
    long GetRemainingSpace();
    // The identifiers of all tracks; empty when not connected.
    std::vector<long> ListTracks();
    // The first of `trackIds` that the storage doesn't list; 0 when it lists all.
    long TracksCreated(const std::vector<long>& trackIds);

    // All protections of all tracks; empty when not connected.
    std::vector<ProtectionInfos> ListProtections();
    // Time point of the first chunk. TimePoint::Nanoseconds(-1) without a chunk and when not
    // connected, 0 nanoseconds when the exchange failed.
    Time::TimePoint GetBeginningOfTrack(long trackId);
    // Time point plus duration of the last chunk; else as GetBeginningOfTrack.
    Time::TimePoint GetEndOfTrack(long trackId);
    // The latest end of these tracks (one exchange for each), but not before 0 nanoseconds.
    Time::TimePoint GetHighestTimePoint(const std::vector<long>& trackIds);
    // Holds every chunk that intersects [in, out), those appended later included: they are neither
    // recycled nor cleared, and the track can't be deleted. Returns the protection's identifier; -1
    // not connected or when the exchange failed.
    long Protect(long trackId, Time::TimePoint in, Time::TimePoint out);
    // Ends a protection.
    void Unprotect(long protectionId);
    // How many chunks have a time point in [in, out); 0 not connected.
    long GetNumberOfChunks(const long& trackId, const Time::TimePoint& in,
                           const Time::TimePoint& out);
    // The sum of the durations of these chunks; 0 nanoseconds not connected.
    Time::TimePoint GetAccumulatedDuration(const long& trackId, const Time::TimePoint& in,
                                           const Time::TimePoint& out);

    // Adds or replaces these properties of a track and leaves the others. Throws std::runtime_error
    // for an empty key; nothing is sent then. Not connected: nothing, whatever the keys.
    void SetTrackProperties(long trackId, const Properties& properties);
    // All properties of a track; empty when not connected.
    Properties GetTrackProperties(long trackId);
    // Removes the properties with these keys; the values are ignored. Throws as SetTrackProperties.
    void RemoveTrackProperties(long trackId, const Properties& properties);

    // The commands that have not ended; empty when not connected.
    std::vector<long> GetOngoingCommands();
    // How far a command is; NOT_EXIST for an unknown one and when not connected.
    CommandInfo GetCommandInfo(long commandId);
    // Pairs of an open reader or writer of any client and its track; empty when not connected.
    std::vector<std::pair<long, long>> GetWorkerIds();
    // One record for each of `workerIds`, in their order, of the type NONE for an unknown one;
    // empty when not connected.
    std::vector<WorkerInfo> GetWorkerInfos(const std::vector<long>& workerIds);
    // One record for each of `trackIds` that exists; empty when not connected.
    std::vector<TrackInfo> GetTrackInfos(const std::vector<long>& trackIds);

    // The reader that is registered for this track and this number of the application's choosing,
    // or a new one. The client owns it. Throws std::runtime_error when not connected, and what the
    // storage refuses; nothing is registered then.
    IStorageReaderX* GetTrackReader(long trackId, long readerId);
    // The same for the track's only writer.
    IStorageWriterX* GetTrackWriter(long trackId);
    // Destroys the reader, if there is one.
    void CloseTrackReader(long trackId, long readerId);
    // Destroys the track's writer, if there is one.
    void CloseTrackWriter(long trackId);
    // Whether a reader is registered under these numbers.
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
