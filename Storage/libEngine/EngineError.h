#pragma once

#include <stdexcept>
#include <string>

namespace Brantel::Engine {

// What went wrong below the tracks. what() says what, where (a file, an object) and what the
// system answered.
class EngineError : public std::runtime_error {
  public:
    enum class Kind {
        NoSpace,    // the medium or the track's reservation is full; nothing was written
        Damaged,    // what was read is not what was written
        Fenced,     // a newer epoch has taken the segment over
        Gone,       // the segment does not exist, or no longer
        Closed,     // the segment takes no more chunks: sealed, or a write to it failed before
        Cancelled,  // the caller's progress asked to stop; what was begun has been undone
        Refused,    // an argument the engine can't serve: a mistake of the caller
        Io,         // the medium failed
    };

    EngineError(Kind kind, const std::string& text) : std::runtime_error(text), kind(kind) {}

    Kind GetKind() const noexcept { return kind; }

  private:
    Kind kind;
};

}  // namespace Brantel::Engine
