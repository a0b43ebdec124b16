#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tracks {

// One command: a change of a track that takes its time. Stored as the engine's record
// "command/<id>".
struct CommandRecord {
    enum class Kind : std::uint8_t { Create = 1, Grow = 2, Delete = 3 };
    enum class State : std::uint8_t {
        Queued = 1,  // also while it is carried out: a crash makes no difference between the two
        Finished = 2,
        Canceled = 3
    };

    static constexpr std::uint8_t version = 1;

    std::int64_t id = 0;
    Kind kind = Kind::Create;
    State state = State::Queued;
    std::int64_t track = 0;
    std::uint64_t capacity = 0;  // that a track is created with or grows to

    std::string Encode() const;
    // Throws std::runtime_error for what it can't read.
    static CommandRecord Decode(std::string_view bytes);

    static constexpr const char* prefix = "command/";
    static std::string Key(std::int64_t id) { return prefix + std::to_string(id); }
};

}  // namespace Brantel::Tracks
