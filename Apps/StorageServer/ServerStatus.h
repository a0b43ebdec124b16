#pragma once

#include "OperationMetrics.h"
#include "ProcessStatus.h"

#include <libServices/ServiceListener.h>
#include <libTracks/StorageStatus.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Server {

// How often a limit, named as the option that sets it, refused something.
struct RefusalCount {
    const char* limit = "";
    std::uint64_t count = 0;
};

// What a limit allows, in the unit of the option that sets it.
struct LimitInForce {
    const char* name = "";
    std::uint64_t value = 0;
};

// What is told of the store that is served.
struct ServedStatus {
    std::vector<std::string> addresses;
    std::vector<LimitInForce> limits;
    std::vector<RefusalCount> refusals;
    Services::ServiceListenerCounters connections;
    Tracks::StorageStatus storage;
};

// Everything that is told of a server: what /metrics and /status are made of. A value.
struct ServerStatus {
    enum class Phase {
        Starting,  // the store is being opened
        Ready,     // clients are served
        Stopping   // no more
    };

    Phase phase = Phase::Starting;
    std::string version;
    std::chrono::system_clock::time_point start;
    std::chrono::nanoseconds uptime{0};
    ProcessStatus process;
    OperationMetrics::Picture operations;
    std::optional<ServedStatus> served;  // not set while there is no store

    static const char* NameOf(Phase phase) {
        switch (phase) {
            case Phase::Starting: return "starting";
            case Phase::Ready: return "ready";
            case Phase::Stopping: return "stopping";
        }
        return "unknown";
    }
};

}  // namespace Brantel::Server
