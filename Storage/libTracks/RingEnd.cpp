#include "RingEnd.h"

#include <algorithm>

namespace Brantel::Tracks {

using Engine::SegmentInfo;

std::size_t FindRingEnd(std::span<const SegmentInfo> ring, std::uint64_t front) {
    std::uint64_t next = front;
    for (const SegmentInfo& info : ring) {
        next = info.count > 0 ? std::max(next, info.last.front) : next;
    }
    for (std::size_t index = 0; index < ring.size(); ++index) {
        const SegmentInfo& info = ring[index];
        if (info.count == 0) {
            continue;
        }
        const auto behind = ring.subspan(index);
        const bool wasNeverSafe = std::all_of(
            behind.begin(), behind.end(),
            [](const SegmentInfo& later) { return later.mayFollowLoss || later.count == 0; });
        if (info.first.ordinal > next && wasNeverSafe) {
            return index;
        }
        next = std::max(next, info.last.ordinal + 1);
    }
    return ring.size();
}

}  // namespace Brantel::Tracks
