#pragma once

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tracks {

// The server's settings of one track, made by the track properties that begin with "storage.":
//
//   storage.retention   loop: a full track recycles its oldest chunks; stop: it refuses; default:
//                       the server's
//   storage.durability  always, interval:<milliseconds>ms (1 to 3600000), os; default: the server's
struct TrackSettings {
    enum class Retention : std::uint8_t { Loop, Stop };

    static constexpr std::string_view prefix = "storage.";
    static constexpr std::int64_t longestIntervalMilliseconds = 3600000;

    Retention retention = Retention::Loop;
    Engine::Durability durability;

    // Takes one property over; nothing for a key without the prefix. Throws std::runtime_error that
    // says what is wrong with an unknown key or a bad value.
    void Set(std::string_view key, std::string_view value);

    // Reads the value of storage.durability.
    static Engine::Durability ParseDurability(std::string_view value);
    // The reverse of it.
    static std::string DescribeDurability(const Engine::Durability& durability);
};

}  // namespace Brantel::Tracks
