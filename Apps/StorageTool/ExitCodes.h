#pragma once

#include <stdexcept>

namespace Brantel::Tool {

// What the program ends with.
struct ExitCodes {
    static constexpr int done = 0;
    static constexpr int failed = 1;
    static constexpr int misused = 2;
    // Done, but something was lost or found damaged.
    static constexpr int lossy = 3;
};

// The command line makes no sense: ends the program with ExitCodes::misused. Everything else that
// is thrown ends it with ExitCodes::failed.
class Misuse : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The user has asked for the end before the work was done; the text says how far it got.
class Interrupted : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Brantel::Tool
