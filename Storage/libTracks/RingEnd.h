#pragma once

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace Brantel::Tracks {

// Where a ring ends after a loss of power: what of it was appended without a flush may be lost in
// the middle, and what lies behind the gap had not been promised either. Then the ring is what lies
// in front of the gap. A gap that no such loss explains is damage and ends nothing.
//
// `ring`: its segments, by number; `front`: the ordinal from which on the track's record has it.
// The answer is how many of them belong to the ring.
std::size_t FindRingEnd(std::span<const Engine::SegmentInfo> ring, std::uint64_t front);

}  // namespace Brantel::Tracks
