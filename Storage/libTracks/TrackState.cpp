#include "TrackState.h"

#include "TrackError.h"

#include <algorithm>
#include <stdexcept>

namespace Brantel::Tracks {

void TrackState::CheckUsableLocked(Engine::TrackId track) const {
    if (phase != TrackRecord::Phase::Ready) {
        const bool isNew = phase == TrackRecord::Phase::Creating;
        throw std::runtime_error("Track " + std::to_string(track) +
                                 (isNew ? " is being created" : " is being deleted"));
    }
    if (!failure.empty()) {
        throw TrackError(track, "it can't be used: " + failure);
    }
}

std::uint64_t TrackState::GetHeldBytesLocked() const {
    std::uint64_t bytes = index.held.GetBytes();
    if (protections.IsEmpty()) {
        return bytes;
    }
    for (const Log::Run& run : index.ring.GetRuns()) {
        const auto first = static_cast<std::uint64_t>(run.first);
        const double part = static_cast<double>(protections.GetCovered(first, run.reach)) /
                            static_cast<double>(std::max<std::uint64_t>(run.reach - first, 1));
        bytes += static_cast<std::uint64_t>(part * static_cast<double>(run.bytes));
    }
    return bytes;
}

}  // namespace Brantel::Tracks
