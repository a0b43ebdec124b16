#pragma once

#include <string>

namespace Brantel::Server {

// An engine as an operator chooses it.
struct EngineName {
    std::string name;
    bool keepsFiles = false;  // it needs a folder
};

}  // namespace Brantel::Server
