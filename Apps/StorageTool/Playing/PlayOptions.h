#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Tool {

// What "play" was asked to do, as it was written.
struct PlayOptions {
    std::int64_t track = 0;
    std::string range;
    std::string format = "raw";
    std::string folder;
    std::vector<std::string> keys;
    bool overwrite = false;
    bool reverse = false;
    bool realtime = false;
    bool preview = false;
};

}  // namespace Brantel::Tool
