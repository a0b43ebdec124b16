#pragma once

#include "Movie.h"

#include <libProtocolX/StorageClientX.h>

namespace Brantel::MovieDemo {

// A movie on a track of a storage: what must be found there besides its chunks. A value.
struct RecordedTrack {
    // What a movie's track is; its id is still open.
    static RecordedTrack Of(const Movie& movie);

    // The one track that the storage has, which a recording of this movie left there earlier.
    // Throws std::runtime_error when there is none, or more than one.
    static RecordedTrack Find(ProtocolX::StorageClientX& client, const Movie& movie);

    long id = 0;
    long capacity = 0;  // bytes
    ProtocolX::StorageClientX::Properties properties;
};

}  // namespace Brantel::MovieDemo
