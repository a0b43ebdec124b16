#pragma once

#include <libEngine/IEngine.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

// The entries of a segment. Throws EngineError: Damaged when their times can't be, and whatever the
// engine throws.
std::vector<Engine::ChunkEntry> ReadIndex(Engine::IEngine& engine, const Engine::SegmentId& id);

// Throw EngineError (Damaged): CheckTimes for an entry whose times can't be, CheckRun unless
// [begin, end) is not empty and lies within `count` entries.
void CheckTimes(const Engine::ChunkEntry& entry);
void CheckRun(std::size_t begin, std::size_t end, std::size_t count);

}  // namespace Brantel::Tracks
