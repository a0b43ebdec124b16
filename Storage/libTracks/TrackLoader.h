#pragma once

#include "TrackLogs.h"
#include "TrackState.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brantel::Tracks {

// Finds out at a server's start what a track holds, from its record and its segments. Reads what
// the engine knows of each segment; the index only of those that are partly live or still open.
class TrackLoader {
  public:
    // All borrowed.
    TrackLoader(const TrackContext& context, TrackState& state, TrackLogs& logs)
        : context(context), state(state), logs(logs) {}

    // Fills the index and the logs, whose record is set. Under the track's gate.
    void Load();

  private:
    using Infos = std::vector<Engine::SegmentInfo>;

    void LoadRing(Infos infos);
    void LoadHeld(const Infos& infos);
    void CutRing(Infos& infos);
    void EndRing(Infos& infos);
    void KeepFront(const Infos& infos, std::size_t end);
    void AddToRing(const Engine::SegmentInfo& info);
    void AddHeld(const Engine::SegmentInfo& info, std::vector<Log::Run>& runs);
    void JoinHeld(std::vector<Log::Run> runs);
    void MoveToPending(Log::Run run);
    void OpenTail(const Engine::SegmentInfo& info, LogWriter& writer, Log& log);
    void SealOld(const Engine::SegmentInfo& info);
    Log::Run MakeRun(const Engine::SegmentInfo& info, std::uint32_t begin, std::uint32_t end);

    const TrackContext& context;
    TrackState& state;
    TrackLogs& logs;
    std::uint64_t knownFront = 0;  // of the ring, whatever its chunks say
};

}  // namespace Brantel::Tracks
