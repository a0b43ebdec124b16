#pragma once

#include <map>
#include <string>
#include <vector>

namespace Brantel::Tool {

// KEY=VALUE arguments; a value may hold more equals signs. Throws Misuse for one without a key or
// without "=", and for a key that comes twice.
std::map<std::string, std::string> KeyValue(const std::vector<std::string>& arguments);

}  // namespace Brantel::Tool
