#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace Brantel::Engine {

// Which tracks an engine has answered for, counted from 0. Plain numbers, as Answered.
struct AnsweredTracks {
    std::uint64_t front = 0;      // those below it may be gone
    std::uint64_t made = 0;       // those below it were answered
    std::uint64_t attempted = 0;  // those below it may be there

    bool operator==(const AnsweredTracks&) const = default;
};

// Reserves tracks, puts one chunk into each, and releases them, one after another. Not thread-safe.
class TrackTurnover {
  public:
    static constexpr TrackId firstTrack = 100;

    TrackTurnover(IEngine& engine, Epoch epoch) : engine(engine), epoch(epoch) {}

    // As LocalWorkload's.
    std::function<void(const AnsweredTracks&)> onChange;
    void Recover(const AnsweredTracks& known);
    // Makes a track, or releases the oldest when there are `most`.
    void Step(std::uint64_t most = 2);

    const AnsweredTracks& GetAnswered() const { return answered; }

    static std::vector<std::string> Check(IEngine& engine, const AnsweredTracks& answered);

  private:
    void Make();
    void Release(TrackId track);
    void Tell();

    IEngine& engine;
    const Epoch epoch;
    AnsweredTracks answered;
};

}  // namespace Brantel::Engine
