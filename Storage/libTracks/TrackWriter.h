#pragma once

#include "ClientConnection.h"
#include "EncodedChunk.h"
#include "TrackUse.h"

#include <libProtocolX/rpc/IChunkTaker.h>
#include <libProtocolX/rpc/ITrackWriter.h>

#include <cstdint>

namespace Brantel::Tracks {

// The open writer of a track. Used by one thread at a time.
class TrackWriter : public BrantelStorageApi::ITrackWriter, public BrantelStorageApi::IChunkTaker {
  public:
    // `core` is borrowed. Throws when the track can't be written, or has a writer already.
    TrackWriter(StorageCore& core, const ClientConnection& connection, std::int64_t trackId);

    void Append(const Protocol::Chunk& chunk) override;
    void AppendTaking(Protocol::Chunk& chunk) override;
    void GetTrackId(long& result) override;

  private:
    void AppendEncoded();

    TrackUse use;
    EncodedChunk encoded;  // keeps its memory from chunk to chunk
};

}  // namespace Brantel::Tracks
