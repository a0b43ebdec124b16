#include "TrackWriter.h"

#include "Track.h"

namespace Brantel::Tracks {

TrackWriter::TrackWriter(StorageCore& core, const ClientConnection& connection,
                         std::int64_t trackId)
    : use(core, connection, trackId, true) {}

void TrackWriter::Append(const Protocol::Chunk& chunk) {
    encoded.Encode(use.GetTrack().GetId(), chunk);
    AppendEncoded();
}

void TrackWriter::AppendTaking(Protocol::Chunk& chunk) {
    encoded.Encode(use.GetTrack().GetId(), chunk);
    encoded.Offer(chunk);
    AppendEncoded();
}

void TrackWriter::AppendEncoded() {
    use.GetTrack().Append(encoded);
    use.Count(encoded.GetPayloadBytes());
    use.MoveTo(encoded.GetTimePoint());
}

void TrackWriter::GetTrackId(long& result) {
    result = use.GetTrack().GetId();
}

}  // namespace Brantel::Tracks
