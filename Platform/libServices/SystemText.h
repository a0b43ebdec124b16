#pragma once

#include <string>
#include <system_error>

namespace Brantel::Services {

// What the system says about an error number: "Connection refused". Thread-safe.
inline std::string SystemText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

}  // namespace Brantel::Services
