#pragma once

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/DynamicObject.h>

namespace BrantelStorageApi {

// Appends to one track. Every operation reports a failure by an exception derived from
// std::runtime_error.
class ITrackWriter : public DynamicObject {
  public:
    // Asks the server to drop the remote object; nothing where the object is not remote.
    virtual void DestroyOnServer() {}

    // Adds a chunk at the end of the track.
    virtual void Append(const Protocol::Chunk& chunk) = 0;

    // The track that this object works on.
    virtual void GetTrackId(long& result) = 0;
};

}  // namespace BrantelStorageApi
