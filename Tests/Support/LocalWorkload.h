#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace Brantel::Engine {

// What an engine has answered: all that must be found again. Plain numbers, so that another process
// can be told of each.
struct Answered {
    enum class Other : std::uint64_t { None, Filled, InDoubt };

    std::uint64_t chunks = 0;     // of the track: ordinals below it were answered
    std::uint64_t safe = 0;       // of them: ordinals below it survive a loss of power
    std::uint64_t front = 0;      // ordinals below it may be gone
    std::uint64_t attempted = 0;  // ordinals below it may be there
    std::uint64_t record = 0;     // the record's value is at least this
    std::uint64_t recordAttempted = 0;
    Other other = Other::None;  // the second track: none, one with a chunk, or being changed

    bool operator==(const Answered&) const = default;

    // What is left of it when the power is lost.
    Answered AfterPowerLoss() const {
        Answered left = *this;
        left.chunks = safe;
        return left;
    }
};

// Writes one track as a ring, in random steps, of which each chunk's content follows from its
// ordinal; so that whoever opens the store later can tell whether it is right. Now and then a
// record is written, and a second track made or given back. Not thread-safe.
class LocalWorkload {
  public:
    struct Settings {
        TrackId track = 7;
        std::uint32_t segmentSize = 16 * 4096;
        std::uint64_t segments = 4;
        Durability durability;
        bool mixDurability = false;  // any mode for each chunk instead
        std::uint32_t maxPart = 9000;
        unsigned sealOneIn = 64;  // chunks: a segment is sealed early
    };

    LocalWorkload(IEngine& engine, const Settings& settings, Epoch epoch, std::uint64_t seed);

    // Called with the new state in front of each operation (attempts) and behind it (answers).
    std::function<void(const Answered&)> onChange;

    // Takes over what is there; throws std::runtime_error for what can't be. `known`: what was
    // answered so far.
    void Recover(const Answered& known);
    // A record's change alone.
    void WriteRecord();
    // One random operation. EngineError passes through; Recover must follow.
    void Step();

    const Answered& GetAnswered() const { return answered; }

    // What is wrong with what the store holds; empty: nothing. `answered`: what it must hold.
    static std::vector<std::string> Check(IEngine& engine, const Settings& settings,
                                          const Answered& answered);

  private:
    struct Open {
        SegmentId id;
        std::uint64_t firstOrdinal = 0;
        std::uint64_t count = 0;
        std::uint32_t end = 0;
    };

    void Append();
    void NextSegment();
    void ChangeOther();
    void ReleaseOther();
    void Tell();

    IEngine& engine;
    const Settings settings;
    const Epoch epoch;
    std::mt19937_64 random;
    Answered answered;
    std::deque<Open> segments;  // the last one is open
    std::uint64_t lastNumber = 0;
};

// The parts that a chunk of this ordinal has.
std::vector<std::string> WorkloadParts(const LocalWorkload::Settings& settings,
                                       std::uint64_t ordinal);

}  // namespace Brantel::Engine
