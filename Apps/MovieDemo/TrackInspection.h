#pragma once

#include "Comparison.h"
#include "Movie.h"
#include "RecordedTrack.h"

#include <libProtocolX/StorageClientX.h>

#include <string>

namespace Brantel::MovieDemo {

// Asks the storage everything it knows about a recorded track besides its chunks, and compares that
// with what was recorded. Everything throws std::runtime_error at the first difference.
class TrackInspection {
  public:
    // All are borrowed. The client is connected, and not the one that recorded.
    TrackInspection(ProtocolX::StorageClientX& client, const RecordedTrack& recorded,
                    const Movie& movie, Comparison& comparison)
        : client(client), recorded(recorded), movie(movie), comparison(comparison) {}

    // Sizes, begin and end.
    void CheckInfos();
    // Numbers of chunks and their durations, of the whole and of parts.
    void CheckCounts();
    // Sets, replaces and removes.
    void CheckProperties();
    // Protects a stretch and gives it free again.
    void CheckProtection();
    // While the recording client is connected: its writer and the one reader of this client, with
    // the IPv4 addresses that their clients have (empty: not connected over IPv4).
    void CheckWorkers(const std::string& writerAddress, const std::string& readerAddress);

  private:
    ProtocolX::StorageClientX& client;
    const RecordedTrack& recorded;
    const Movie& movie;
    Comparison& comparison;
};

}  // namespace Brantel::MovieDemo
