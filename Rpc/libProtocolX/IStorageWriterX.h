#pragma once

namespace Brantel::ProtocolX {

class DataChunk;

// Appends chunks to one track. Made and owned by a StorageClientX, until CloseTrackWriter, the next
// ConnectToSlave or the client's end; never deleted by its user. Each operation is at most one
// exchange with the storage; what the storage refuses is thrown as std::runtime_error, "Exception
// from server: " and its text, a lost connection as SocketDisconnected.
class IStorageWriterX {
  public:
    virtual ~IStorageWriterX() = default;

    // The track's identifier; 0 when nobody answers.
    virtual long GetTrackId() = 0;

    // Adds `chunk` at the end of the track.
    virtual void Append(const DataChunk& chunk) = 0;

  protected:
    IStorageWriterX() = default;
    IStorageWriterX(const IStorageWriterX&) = default;
    IStorageWriterX& operator=(const IStorageWriterX&) = default;
};

}  // namespace Brantel::ProtocolX
