#pragma once

#include "ClientConnection.h"
#include "TrackUse.h"

#include <libProtocolX/rpc/ITrackReader.h>

#include <cstdint>

namespace Brantel::Tracks {

// An open reader of one connection. Used by one thread at a time.
class TrackReader : public BrantelStorageApi::ITrackReader {
  public:
    // `core` is borrowed. Throws when the track can't be read.
    TrackReader(StorageCore& core, const ClientConnection& connection, std::int64_t trackId);

    void NextTimePoint(const Protocol::TimePoint& timecode, Protocol::TimePoint& nextTimePoint,
                       bool& result) override;
    void GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                  Protocol::Chunk& chunk, bool& result) override;
    void GetTrackId(long& result) override;
    void PreviousTimePoint(const Protocol::TimePoint& timecode,
                           Protocol::TimePoint& previousTimePoint, bool& result) override;
    void GetPreviousChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                          Protocol::Chunk& chunk, bool& result) override;
    void GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                      Protocol::Chunk& chunk, bool& result) override;
    void Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) override;

  private:
    // Fills a time point's answer; -1: there is none.
    void Answer(std::int64_t found, Protocol::TimePoint& timePoint, bool& result);
    void CountChunk(const Protocol::Chunk& chunk, bool isFound, std::uint64_t bytes);

    StorageCore& core;
    const ClientConnection connection;
    TrackUse use;
};

}  // namespace Brantel::Tracks
