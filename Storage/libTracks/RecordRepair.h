#pragma once

#include <libEngine/EngineTypes.h>
#include <libEngine/IEngine.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Brantel::Tracks {

class TrackGeometry;

// Makes up for records of a store that are damaged or lost, at the start of whoever opens it: a
// track is found again in its segments, identifiers go on far behind all that can have been given
// out. What can't be found again is named. Nothing is done, and nothing written, when all is whole.
class RecordRepair {
  public:
    using Say = std::function<void(const std::string&)>;

    // The record of the whole store.
    static constexpr const char* storeKey = "store";

    // Both borrowed.
    RecordRepair(Engine::IEngine& engine, const TrackGeometry& geometry, Say say)
        : engine(engine), geometry(geometry), say(std::move(say)) {}

    // Throws EngineError.
    void Run();

  private:
    void ReplaceDamaged(const std::string& key);
    void SkipIds(const std::string& key);
    void RestoreTrack(const Engine::Reservation& reservation);
    void HoldWhatWasHeld(Engine::TrackId track);
    bool HasProtection(Engine::TrackId track);
    void Write(const std::vector<Engine::RecordChange>& changes);

    Engine::IEngine& engine;
    const TrackGeometry& geometry;
    const Say say;
};

}  // namespace Brantel::Tracks
