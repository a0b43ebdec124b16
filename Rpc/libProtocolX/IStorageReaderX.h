#pragma once

#include <libTime/TimePoint.h>

#include <set>
#include <string>

namespace Brantel::ProtocolX {

class DataChunk;

// Reads the chunks of one track. Made and owned by a StorageClientX, until CloseTrackReader, the
// next ConnectToSlave or the client's end; never deleted by its user. Each operation is at most one
// exchange with the storage; what the storage refuses is thrown as std::runtime_error, "Exception
// from server: " and its text, a lost connection as SocketDisconnected. Different readers may be
// used by different threads.
class IStorageReaderX {
  public:
    virtual ~IStorageReaderX() = default;

    // The track's identifier; 0 when nobody answers.
    virtual long GetTrackId() = 0;

    // The time point of the first chunk; TimePoint::Nanoseconds(-1) without a chunk.
    virtual Time::TimePoint FirstTimePoint() = 0;
    // The time point of the last chunk; TimePoint::Nanoseconds(-1) without a chunk.
    virtual Time::TimePoint LastTimePoint() = 0;

    // The first time point after `timePoint`; TimePoint::Nanoseconds(-1) when there is none.
    virtual Time::TimePoint NextTimePoint(Time::TimePoint timePoint) = 0;
    // The last time point before `timePoint`; TimePoint::Nanoseconds(-1) when there is none.
    virtual Time::TimePoint PreviousTimePoint(Time::TimePoint timePoint) = 0;

    // Reads the chunk that covers `timePoint`, with all properties and the data blocks in `keys`
    // (empty: all). Returns whether there is one; if not, `chunk` is emptied, unless nobody
    // answered.
    virtual bool GetChunk(DataChunk& chunk, Time::TimePoint timePoint,
                          const std::set<std::string>& keys) = 0;
    // As GetChunk, for the first chunk with a time point after `timePoint`.
    virtual bool GetNextChunk(DataChunk& chunk, Time::TimePoint timePoint,
                              const std::set<std::string>& keys) = 0;
    // As GetChunk, for the last chunk with a time point before `timePoint`.
    virtual bool GetPreviousChunk(DataChunk& chunk, Time::TimePoint timePoint,
                                  const std::set<std::string>& keys) = 0;

  protected:
    IStorageReaderX() = default;
    IStorageReaderX(const IStorageReaderX&) = default;
    IStorageReaderX& operator=(const IStorageReaderX&) = default;
};

}  // namespace Brantel::ProtocolX
