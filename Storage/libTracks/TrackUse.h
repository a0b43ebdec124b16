#pragma once

#include "ClientConnection.h"
#include "Workers.h"

#include <cstdint>
#include <memory>

namespace Brantel::Tracks {

class StorageCore;
class Track;

// The hold that an open reader or writer has on its track, and its entry among the workers.
class TrackUse {
  public:
    // Throws when the track does not exist, can't be used, or has a writer already.
    TrackUse(StorageCore& core, const ClientConnection& connection, std::int64_t trackId,
             bool isWriter);
    ~TrackUse();
    TrackUse(const TrackUse&) = delete;
    TrackUse& operator=(const TrackUse&) = delete;

    Track& GetTrack() { return *track; }
    // A call, and the payload that it has read or written.
    void Count(std::uint64_t bytes) { worker->Count(bytes); }
    // The chunk that was read, found or written.
    void MoveTo(std::int64_t timePoint) { worker->MoveTo(timePoint); }

  private:
    const bool isWriter;
    const std::shared_ptr<Track> track;  // shared with the registry
    std::unique_ptr<Workers::Worker> worker;
};

}  // namespace Brantel::Tracks
