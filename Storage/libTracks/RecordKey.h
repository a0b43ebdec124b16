#pragma once

#include <cstdint>
#include <string>

namespace Brantel::Tracks {

// The number behind the prefix in the key of a record, which begins with it. Throws
// std::runtime_error when there is none, or something else besides.
std::int64_t NumberInKey(const std::string& key, const std::string& prefix);

}  // namespace Brantel::Tracks
