#pragma once

#include <libEngine/EngineTypes.h>
#include <libEngine/IEngine.h>
#include <libTracks/StoreFindings.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Brantel::Tracks {

class EncodedChunk;
class StorageCore;
class Track;

// Copies what is whole in a store into another, empty one: tracks with their chunks, properties and
// protections, the history of commands and the state of all identifiers.
//
// Until it has come to its end the new store says so, and no server opens it.
class StoreRecovery {
  public:
    struct Sums {
        std::uint64_t tracks = 0;
        std::uint64_t chunks = 0;   // copied
        std::uint64_t bytes = 0;    // of their values
        std::uint64_t damaged = 0;  // chunks that were left out, each a finding
    };

    // All borrowed. `source` shows a store without letting it be changed.
    StoreRecovery(Engine::IEngine& source, Engine::IEngine& target, StoreFindings& findings)
        : source(source), target(target), findings(findings) {}

    // Blocks, long. Throws std::runtime_error when the new store does not take what it should.
    Sums Run();

    // Throws std::runtime_error for a store in which a recovery has not come to its end.
    static void CheckFinished(Engine::IEngine& engine);

  private:
    // Those of tracks and protections that say what can't be, before anybody reads them. A track is
    // then made again from its segments.
    void LeaveOutRecords();
    void CopyRecords(StorageCore& from);
    void CopyTrack(Track& from, Track& to);
    // Goes on to the next time point; false at the end.
    bool FindNext(Track& from, std::int64_t& position);
    void CopyChunk(Track& from, Track& to, std::int64_t position, EncodedChunk& encoded);
    void Finish();

    Engine::IEngine& source;
    Engine::IEngine& target;
    StoreFindings& findings;
    Sums sums;
    std::map<std::string, std::string> properties;  // records that are written at the end
};

}  // namespace Brantel::Tracks
