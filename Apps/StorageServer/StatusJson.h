#pragma once

#include "ServerStatus.h"

#include <cstddef>
#include <string>

namespace Brantel::Server {

// The status as one JSON object, for people and scripts. Bytes and seconds; time points of tracks
// are nanoseconds. Of longer lists the first entries are given, and how many are left out.
std::string StatusJson(const ServerStatus& status);

inline constexpr std::size_t statusListLimit = 10'000;

}  // namespace Brantel::Server
