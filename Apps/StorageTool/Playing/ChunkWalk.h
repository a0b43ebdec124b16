#pragma once

#include "Playing/TrackRange.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libTime/TimePoint.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace Brantel::Tool {

// Steps over the chunks of a stretch of a track, in either direction. A damaged chunk is told of
// and stepped over. One thread at a time.
class ChunkWalk {
  public:
    // No block has this key: what asks for it gets time points, durations and properties alone, and
    // the server reads no data.
    static const std::set<std::string>& NoBlocks();

    // Borrows the context, whose connection it uses. `keys`: of the data blocks, empty: all.
    ChunkWalk(Context& context, std::int64_t track, TrackRange range, std::set<std::string> keys,
              bool backward = false);
    ChunkWalk(const ChunkWalk&) = delete;
    ChunkWalk& operator=(const ChunkWalk&) = delete;
    ~ChunkWalk();

    // The next chunk; false at the end. Throws what the storage refuses.
    bool Next(ProtocolX::DataChunk& chunk);

    // Chunks that could not be read.
    std::int64_t Damaged() const { return damaged; }
    // Called with the time point of each of them and what is wrong, instead of saying it on the
    // standard error.
    void SetReport(std::function<void(Time::TimePoint, const std::string&)> newReport) {
        report = std::move(newReport);
    }

  private:
    bool Read(ProtocolX::DataChunk& chunk);
    // Where the chunk is that could not be read.
    Time::TimePoint StepOver();

    Context& context;
    const std::int64_t track;
    const std::set<std::string> keys;
    const bool backward;
    const TrackRange range;
    Time::TimePoint position;
    ProtocolX::IStorageReaderX* reader = nullptr;
    std::int64_t readerId = 0;
    std::int64_t damaged = 0;
    std::function<void(Time::TimePoint, const std::string&)> report;
};

}  // namespace Brantel::Tool
