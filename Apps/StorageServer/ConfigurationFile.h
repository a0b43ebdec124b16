#pragma once

#include "Setting.h"

#include <map>
#include <string>
#include <vector>

namespace Brantel::Server {

// A file of settings in TOML: keys at the top, see Setting for the values.
class ConfigurationFile {
  public:
    struct Value {
        Setting::Texts texts;
        int line = 0;
        // As it stands in the file, for messages.
        std::string written;
    };

    // The largest file that is read, in bytes.
    static constexpr std::size_t sizeLimit = std::size_t{1} << 20U;

    // Reads the values by their keys. Throws std::runtime_error with the path and what the system
    // said, or with path, line and what is wrong there: no TOML, a key that no setting has, a value
    // of another kind.
    static std::map<std::string, Value> Read(const std::string& path,
                                             const std::vector<Setting>& settings);

    // The value as the file has it.
    static std::string Write(const Setting& setting, const Setting::Texts& texts);
};

}  // namespace Brantel::Server
