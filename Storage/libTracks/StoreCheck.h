#pragma once

#include <libEngine/EngineTypes.h>
#include <libEngine/IEngine.h>
#include <libTracks/StoreFindings.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tracks {

class Track;
struct TrackRecord;

// Reads everything that a store holds and tells what is not as it should be: each damaged chunk by
// track, time point, file and offset; chunks, records and indexes that are missing.
class StoreCheck {
  public:
    struct Sums {
        std::uint64_t tracks = 0;
        std::uint64_t segments = 0;
        std::uint64_t chunks = 0;  // that readers get, damaged ones included
    };

    // `engine` (borrowed): one that shows a store without letting it be changed. `findings`
    // (borrowed) may hold already what was found when it was opened.
    StoreCheck(Engine::IEngine& engine, StoreFindings& findings)
        : engine(engine), findings(findings) {}

    // Blocks, long. Throws std::runtime_error when the store can't be read at all.
    Sums Run();

  private:
    class Observer;
    // The segments in which a track's ring lies, and the ordinal of its oldest chunk.
    struct Ring {
        std::vector<Engine::SegmentInfo> segments;
        std::uint64_t front = 0;

        bool Holds(const Engine::SegmentInfo& info) const;
    };

    void CheckTrack(Track& track);
    void CheckSegment(Track& track, const Engine::SegmentId& id);
    Ring ReadRing(Engine::TrackId track, std::uint64_t front);
    void CheckOrder(Engine::TrackId track, const Ring& ring);
    void CheckHeld(Engine::TrackId track, const TrackRecord& record);

    Engine::IEngine& engine;
    StoreFindings& findings;
    Sums sums;
};

}  // namespace Brantel::Tracks
