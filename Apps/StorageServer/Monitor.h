#pragma once

#include "HttpServer.h"
#include "OperationMetrics.h"
#include "ServerStatus.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace Brantel::Server {

// What those who watch over a server can ask, from its first moment to its last:
//
//     /livez    200 for as long as the process answers
//     /readyz   200 while clients are served; 503 before that, and again once it stops
//     /metrics  numbers for Prometheus
//     /status   the same and more as JSON
//
// Reads alone. Thread-safe.
class Monitor {
  public:
    using Phase = ServerStatus::Phase;
    // Looks at the store that is served; called on any thread, one at a time.
    using Source = std::function<ServedStatus()>;

    explicit Monitor(std::string version);
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    // To be told of every call.
    OperationMetrics& GetOperations() { return operations; }

    void SetPhase(Phase phase) { current = phase; }

    // Until this object ends, the store can be looked at; then no look at it goes on any more.
    class Shown {
      public:
        explicit Shown(Monitor& monitor) : monitor(monitor) {}
        ~Shown();
        Shown(const Shown&) = delete;
        Shown& operator=(const Shown&) = delete;

      private:
        Monitor& monitor;
    };
    [[nodiscard]] Shown Show(Source look);

    HttpReply Answer(const std::string& path);

  private:
    ServerStatus Look();

    OperationMetrics operations;
    const std::string version;
    const std::chrono::system_clock::time_point start;
    const std::chrono::steady_clock::time_point steadyStart;
    std::atomic<Phase> current = Phase::Starting;
    std::mutex mutex;
    Source source;  // guarded by mutex; empty: there is no store
};

}  // namespace Brantel::Server
