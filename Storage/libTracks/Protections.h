#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

// The protections of one track, and which chunks they hold. Guarded by the track's state.
class Protections {
  public:
    struct Stretch {
        std::int64_t timePoint = 0;
        std::int64_t duration = 0;  // 0: what covers the time point
    };

    bool IsEmpty() const { return stretches.empty(); }
    const std::map<std::int64_t, Stretch>& GetAll() const { return stretches; }

    // Throws std::runtime_error "Track 7: ..." for a stretch that makes no sense anywhere.
    static void Check(std::int64_t track, const Stretch& stretch);
    // What a stored protection is if it makes no sense anywhere: "protection 3, of 1 nanoseconds at
    // -1, begins below 0". Empty: it does make sense.
    static std::string DescribeFault(std::int64_t id, const Stretch& stretch);

    // Takes over what was stored. Throws std::runtime_error with the first fault, once all that
    // make sense are there.
    void Load(const std::map<std::int64_t, Stretch>& stored);

    void Add(std::int64_t id, const Stretch& stretch);
    void Remove(std::int64_t id);

    // Whether a chunk is held: whether it intersects a protected stretch.
    bool Holds(std::int64_t timePoint, std::int64_t duration) const;

    // How much of [begin, end) protected stretches cover, in nanoseconds.
    std::uint64_t GetCovered(std::uint64_t begin, std::uint64_t end) const;

    // Behind the last time point that a stretch or a chunk covers; both arguments are >= 0.
    // Unsigned, since it may lie behind the largest time point.
    static std::uint64_t EndOf(std::int64_t timePoint, std::int64_t duration);

    // Each protection is one record of the engine: its key, and its value with the track.
    static constexpr const char* prefix = "protection/";
    static std::string Key(std::int64_t id) { return prefix + std::to_string(id); }
    static std::string Encode(std::int64_t track, const Stretch& stretch);
    // As stored: it may make no sense. Throws std::runtime_error for what it can't read.
    static Stretch Decode(std::string_view bytes, std::int64_t& track);

  private:
    struct Interval {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
    };

    static std::vector<Interval> Merge(const std::map<std::int64_t, Stretch>& stretches);

    std::map<std::int64_t, Stretch> stretches;  // by identifier
    std::vector<Interval> merged;               // what they cover together: disjoint, in order
};

}  // namespace Brantel::Tracks
