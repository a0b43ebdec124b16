#pragma once

#include "ServerStatus.h"

#include <string>

namespace Brantel::Server {

// The status as Prometheus reads it, in its text format 0.0.4: names begin with `brantel_`, units
// are bytes and seconds. Docs/Operations.md says what each one means.
std::string MetricsText(const ServerStatus& status);

inline constexpr const char* metricsContentType = "text/plain; version=0.0.4; charset=utf-8";

}  // namespace Brantel::Server
