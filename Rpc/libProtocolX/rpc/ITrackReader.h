#pragma once

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/DynamicObject.h>

namespace BrantelStorageApi {

// Reads one track. Every operation reports a failure by an exception derived from
// std::runtime_error.
class ITrackReader : public DynamicObject {
  public:
    // Asks the server to drop the remote object; nothing where the object is not remote.
    virtual void DestroyOnServer() {}

    // The first time point after `timecode`; `result`: whether there is one.
    virtual void NextTimePoint(const Protocol::TimePoint& timecode,
                               Protocol::TimePoint& nextTimePoint, bool& result) = 0;

    // The chunk that covers `timecode`, with all properties and the data blocks in `keys` (empty:
    // all); `result`: whether there is one.
    virtual void GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                          Protocol::Chunk& chunk, bool& result) = 0;

    // The track that this object works on.
    virtual void GetTrackId(long& result) = 0;

    // The last time point before `timecode`; `result`: whether there is one.
    virtual void PreviousTimePoint(const Protocol::TimePoint& timecode,
                                   Protocol::TimePoint& previousTimePoint, bool& result) = 0;

    // As GetChunk, for the last chunk with a time point before `timecode`.
    virtual void GetPreviousChunk(const Protocol::TimePoint& timecode,
                                  const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                  bool& result) = 0;

    // As GetChunk, for the first chunk with a time point after `timecode`.
    virtual void GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                              Protocol::Chunk& chunk, bool& result) = 0;

    // Waits until a chunk with a time point after `timecode` exists, `timeout` milliseconds at most
    // (0 only looks, negative: no limit); `result`: whether there is one.
    virtual void Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) = 0;
};

}  // namespace BrantelStorageApi
