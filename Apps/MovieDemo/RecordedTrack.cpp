#include "RecordedTrack.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::MovieDemo {

RecordedTrack RecordedTrack::Of(const Movie& movie) {
    // Room for the pictures and, generously, for what is stored around each. A round number, so
    // that the storage reserves just that.
    constexpr std::uint64_t aroundFrame = 4096;
    constexpr std::uint64_t round = std::uint64_t{1} << 20U;
    constexpr std::uint64_t least = 16 * round;
    const std::uint64_t bytes = 2 * movie.Bytes() + movie.FrameCount() * aroundFrame + least;
    RecordedTrack track;
    track.capacity = static_cast<long>((bytes + round - 1) / round * round);
    track.properties = {{"title", "Moving picture"},
                        {"frames", std::to_string(movie.FrameCount())}};
    return track;
}

RecordedTrack RecordedTrack::Find(ProtocolX::StorageClientX& client, const Movie& movie) {
    const std::vector<long> ids = client.ListTracks();
    if (ids.size() != 1) {
        throw std::runtime_error("The storage has " + std::to_string(ids.size()) +
                                 " tracks instead of the one that was recorded");
    }
    RecordedTrack track = Of(movie);
    track.id = ids.front();
    return track;
}

}  // namespace Brantel::MovieDemo
