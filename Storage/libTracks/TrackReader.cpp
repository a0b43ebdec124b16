#include "TrackReader.h"

#include "StorageCore.h"
#include "TimeMessages.h"
#include "Track.h"

namespace Brantel::Tracks {

TrackReader::TrackReader(StorageCore& core, const ClientConnection& connection,
                         std::int64_t trackId)
    : core(core), connection(connection), use(core, connection, trackId, false) {}

void TrackReader::Answer(std::int64_t found, Protocol::TimePoint& timePoint, bool& result) {
    result = found >= 0;
    use.Count(0);
    if (result) {
        use.MoveTo(found);
        ToMessage(found, timePoint);
    }
}

void TrackReader::CountChunk(const Protocol::Chunk& chunk, bool isFound, std::uint64_t bytes) {
    use.Count(bytes);
    if (isFound) {
        use.MoveTo(FromMessage(chunk.timecode()));
    }
}

void TrackReader::GetTrackId(long& result) {
    result = use.GetTrack().GetId();
}

void TrackReader::NextTimePoint(const Protocol::TimePoint& timecode,
                                Protocol::TimePoint& nextTimePoint, bool& result) {
    Answer(use.GetTrack().GetNextTimePoint(FromMessage(timecode)), nextTimePoint, result);
}

void TrackReader::PreviousTimePoint(const Protocol::TimePoint& timecode,
                                    Protocol::TimePoint& previousTimePoint, bool& result) {
    Answer(use.GetTrack().GetPreviousTimePoint(FromMessage(timecode)), previousTimePoint, result);
}

void TrackReader::GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                           Protocol::Chunk& chunk, bool& result) {
    std::uint64_t bytes = 0;
    result = use.GetTrack().GetChunk(FromMessage(timecode), keys, chunk, bytes);
    CountChunk(chunk, result, bytes);
}

void TrackReader::GetPreviousChunk(const Protocol::TimePoint& timecode,
                                   const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                   bool& result) {
    std::uint64_t bytes = 0;
    result = use.GetTrack().GetPreviousChunk(FromMessage(timecode), keys, chunk, bytes);
    CountChunk(chunk, result, bytes);
}

void TrackReader::GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                               Protocol::Chunk& chunk, bool& result) {
    std::uint64_t bytes = 0;
    result = use.GetTrack().GetNextChunk(FromMessage(timecode), keys, chunk, bytes);
    CountChunk(chunk, result, bytes);
}

void TrackReader::Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) {
    use.Count(0);
    result =
        use.GetTrack().Wait(FromMessage(timecode), timeout, connection.isGone, core.IsStopping());
    use.Count(0);
}

}  // namespace Brantel::Tracks
