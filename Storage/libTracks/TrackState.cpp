#include "TrackState.h"

#include "TrackError.h"

#include <stdexcept>

namespace Brantel::Tracks {

void TrackState::CheckUsableLocked(Engine::TrackId track) const {
    const std::string name = "Track " + std::to_string(track);
    switch (phase) {
        case TrackRecord::Phase::Creating: throw std::runtime_error(name + " is being created");
        case TrackRecord::Phase::Deleting: throw std::runtime_error(name + " is being deleted");
        case TrackRecord::Phase::Ready: break;
    }
    if (!failure.empty()) {
        throw TrackError(track, "it can't be used: " + failure);
    }
}

}  // namespace Brantel::Tracks
