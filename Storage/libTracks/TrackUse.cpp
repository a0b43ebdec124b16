#include "TrackUse.h"

#include "StorageCore.h"
#include "Track.h"

namespace Brantel::Tracks {

TrackUse::TrackUse(StorageCore& core, const ClientConnection& connection, std::int64_t trackId,
                   bool isWriter)
    : isWriter(isWriter), track(core.tracks.Get(trackId)) {
    Workers::Description description;
    description.type = isWriter ? Protocol::WorkerInfo::WRITER : Protocol::WorkerInfo::READER;
    description.trackId = trackId;
    description.connectionId = connection.id;
    description.clientIpV4Address = connection.clientIpV4Address;
    worker = core.workers.Open(description);
    track->OpenWorker(isWriter);
}

TrackUse::~TrackUse() {
    track->CloseWorker(isWriter);
}

}  // namespace Brantel::Tracks
