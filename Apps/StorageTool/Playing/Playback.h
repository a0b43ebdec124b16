#pragma once

#include "Context.h"
#include "Playing/IChunkPrinter.h"
#include "Playing/Pace.h"
#include "Playing/PlayOptions.h"
#include "Playing/TrackRange.h"

#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace Brantel::Tool {

// Plays a stretch of a track: one thread reads ahead, the calling one writes.
class Playback {
  public:
    Playback(Context& context, const PlayOptions& options);

    // Returns when all is played. Throws Interrupted, which says how far it got.
    void Run();

    std::int64_t Chunks() const { return chunks; }
    // Chunks that were damaged, or have no such form.
    std::int64_t LeftOut() const { return leftOut; }
    std::int64_t Bytes() const { return printer->Bytes(); }

  private:
    void PlayAll();
    void Play(const ProtocolX::DataChunk& chunk);
    std::string HowFar() const;
    bool IsTurn(const ProtocolX::DataChunk& chunk);

    Context& context;
    const PlayOptions& options;
    const TrackRange range;
    std::unique_ptr<IChunkPrinter> printer;
    Pace pace;
    // The last words ask on another thread.
    std::atomic<std::int64_t> chunks = 0;
    std::int64_t leftOut = 0;
    Time::TimePoint last = Time::TimePoint::Nanoseconds(-1);
};

}  // namespace Brantel::Tool
