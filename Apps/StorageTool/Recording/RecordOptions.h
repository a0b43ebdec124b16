#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Brantel::Tool {

// What "record" was asked to do, as it was written.
struct RecordOptions {
    std::int64_t track = 0;
    std::vector<std::string> files;
    std::string format;
    std::string fps;
    std::string rate;
    std::string chunkSize;
    std::string timeField;
    std::string duration;
    std::string start;
    std::string key;
    std::vector<std::string> properties;
    bool retry = false;
    std::string retryFor;
};

}  // namespace Brantel::Tool
