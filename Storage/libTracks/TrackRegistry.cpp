#include "TrackRegistry.h"

#include "Track.h"

#include <stdexcept>
#include <string>

namespace Brantel::Tracks {

TrackRegistry::TrackPointer TrackRegistry::Make(std::int64_t id, std::uint32_t segmentSize) {
    std::uint64_t instance = 0;
    {
        const std::lock_guard lock(mutex);
        instance = ++instances;
    }
    return std::make_shared<Track>(
        TrackContext{engine, cache, options, geometry, epoch, id, instance, segmentSize});
}

TrackRegistry::TrackPointer TrackRegistry::Get(std::int64_t id) {
    TrackPointer track = Find(id);
    if (!track) {
        throw std::runtime_error("Track " + std::to_string(id) + " does not exist");
    }
    return track;
}

TrackRegistry::TrackPointer TrackRegistry::Find(std::int64_t id) {
    const std::lock_guard lock(mutex);
    const auto found = tracks.find(id);
    return found == tracks.end() ? nullptr : found->second;
}

bool TrackRegistry::Insert(const TrackPointer& track) {
    const std::lock_guard lock(mutex);
    return tracks.emplace(track->GetId(), track).second;
}

void TrackRegistry::Erase(std::int64_t id) {
    const std::lock_guard lock(mutex);
    if (const auto found = tracks.find(id); found != tracks.end()) {
        erasedDamagedChunks += found->second->CountDamagedChunks();
        tracks.erase(found);
    }
}

std::vector<TrackRegistry::TrackPointer> TrackRegistry::List() {
    const std::lock_guard lock(mutex);
    std::vector<TrackPointer> list;
    list.reserve(tracks.size());
    for (const auto& [id, track] : tracks) {
        list.push_back(track);
    }
    return list;
}

std::uint64_t TrackRegistry::CountDamagedChunks() {
    const std::lock_guard lock(mutex);
    std::uint64_t count = erasedDamagedChunks;
    for (const auto& [id, track] : tracks) {
        count += track->CountDamagedChunks();
    }
    return count;
}

std::int64_t TrackRegistry::GetSmallestFreeId() {
    const std::lock_guard lock(mutex);
    std::int64_t free = 1;
    for (auto track = tracks.lower_bound(free); track != tracks.end() && track->first == free;
         ++track) {
        ++free;
    }
    return free;
}

}  // namespace Brantel::Tracks
