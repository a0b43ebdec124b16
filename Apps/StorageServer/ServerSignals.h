#pragma once

#include <csignal>

namespace Brantel::Server {

// The signals that the server heeds: SIGINT and SIGTERM ask for its end, SIGHUP lets it read its
// settings again. Made at the beginning of main, before any thread is started, it blocks them, and
// SIGPIPE, for this thread and all that follow. They stay blocked: a terminal and a script that
// both ask for the end don't cut it short.
class ServerSignals {
  public:
    // Throws std::system_error.
    ServerSignals();

    // A descriptor from which they are read (signalfd_siginfo), non-blocking and close-on-exec; the
    // caller's. Throws std::system_error.
    int Open() const;

  private:
    sigset_t signals{};
};

}  // namespace Brantel::Server
