#pragma once

#include <CommonMessages.pb.h>

namespace BrantelStorageApi {

// What a writer may be besides: one that gains when it may take chunks apart.
class IChunkTaker {
  public:
    virtual ~IChunkTaker() = default;

    // As ITrackWriter::Append, for a caller that drops the chunk afterwards: the values of its data
    // blocks may be taken out of it, which spares a storage in memory to copy them, and are empty
    // then. Nothing is taken when it throws.
    virtual void AppendTaking(Protocol::Chunk& chunk) = 0;

  protected:
    IChunkTaker() = default;
    IChunkTaker(const IChunkTaker&) = default;
    IChunkTaker& operator=(const IChunkTaker&) = default;
};

}  // namespace BrantelStorageApi
