#include "Monitor.h"

#include "MetricsText.h"
#include "StatusJson.h"

#include <utility>

namespace Brantel::Server {

Monitor::Monitor(std::string version)
    : version(std::move(version)),
      start(std::chrono::system_clock::now()),
      steadyStart(std::chrono::steady_clock::now()) {}

Monitor::Shown::~Shown() {
    const std::lock_guard lock(monitor.mutex);
    monitor.source = nullptr;
}

Monitor::Shown Monitor::Show(Source look) {
    const std::lock_guard lock(mutex);
    source = std::move(look);
    return Shown(*this);
}

ServerStatus Monitor::Look() {
    ServerStatus status;
    status.phase = current;
    status.version = version;
    status.start = start;
    status.uptime = std::chrono::steady_clock::now() - steadyStart;
    status.process = ProcessStatus::Look();
    status.operations = operations.Get();
    const std::lock_guard lock(mutex);
    if (source) {
        status.served = source();
    }
    return status;
}

HttpReply Monitor::Answer(const std::string& path) {
    HttpReply reply;
    if (path == "/livez") {
        reply.body = "alive\n";
    } else if (path == "/readyz") {
        const Phase phase = current;
        reply.status = phase == Phase::Ready ? 200 : 503;
        reply.body = std::string(ServerStatus::NameOf(phase)) + "\n";
    } else if (path == "/metrics") {
        reply.contentType = metricsContentType;
        reply.body = MetricsText(Look());
    } else if (path == "/status") {
        reply.contentType = "application/json";
        reply.body = StatusJson(Look());
    } else {
        reply.status = 404;
        reply.body = "There are /livez, /readyz, /metrics and /status\n";
    }
    return reply;
}

}  // namespace Brantel::Server
