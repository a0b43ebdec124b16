#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Brantel::Server {

// The service manager that started this process, if one did and says so in the environment: it
// passes sockets and is told what the server does. Without one nothing is passed and nobody told.
class ServiceManager {
  public:
    // Whether anybody is told.
    static bool Listens();

    // Told, each with a line for people: that clients are served; what is going on; that the
    // start goes on and may take at least so long from now; that the settings are read again
    // (TellReady follows); that the end has begun.
    static void TellReady(const std::string& status);
    static void TellStatus(const std::string& status);
    static void TellStarting(std::chrono::microseconds more, const std::string& status);
    static void TellReloading();
    static void TellStopping();
    static void TellAlive();

    // So long may pass between two calls of TellAlive, or the server is ended; 0: for ever.
    static std::chrono::microseconds AliveInterval();

    // The descriptors that were passed, close-on-exec; the caller owns them. A second call has
    // none. Before there are other threads. Throws std::system_error.
    static std::vector<int> TakeSockets();
};

}  // namespace Brantel::Server
