#pragma once

#include "FrameMeter.h"
#include "Movie.h"
#include "RecordedTrack.h"

#include <libProtocolX/StorageClientX.h>

namespace Brantel::MovieDemo {

// Puts a movie on a new track of a storage.
class Recording {
  public:
    // Both are borrowed; the client is connected.
    Recording(ProtocolX::StorageClientX& client, const Movie& movie)
        : client(client), movie(movie) {}

    // Creates the track, describes it by properties and appends every frame. The writer stays open
    // as long as the client has it. Throws std::runtime_error when the storage does not do its
    // part.
    void Record();

    // The following hold after Record.
    const RecordedTrack& Track() const { return track; }
    const FrameMeter& Appending() const { return appending; }

  private:
    void CreateTrack();

    ProtocolX::StorageClientX& client;
    const Movie& movie;
    RecordedTrack track;
    FrameMeter appending;
};

}  // namespace Brantel::MovieDemo
