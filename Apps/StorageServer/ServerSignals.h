#pragma once

#include <csignal>

namespace Brantel::Server {

// The signals that the server heeds: SIGINT and SIGTERM ask for its end, SIGHUP lets it read its
// settings again. Made at the beginning of main, before any thread is started, it blocks them, and
// SIGPIPE, for this thread and all that follow.
class ServerSignals {
  public:
    // Throws std::system_error.
    ServerSignals();

    // Waits for one of them and returns its number. They stay blocked: a terminal and a script that
    // both ask for the end don't cut it short.
    int Wait() const;

  private:
    sigset_t signals{};
};

}  // namespace Brantel::Server
