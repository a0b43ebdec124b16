#pragma once

#include "EngineName.h"
#include "ServerOptions.h"
#include "Setting.h"
#include "SettingTable.h"
#include "Surroundings.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Server {

// Where settings come from: a flag beats the environment, that the file, that the default. Reads
// the file anew whenever it is asked.
class Configuration {
  public:
    struct Chosen {
        ServerOptions options;
        // By key, where each value comes from: "flag", "environment", "/etc/storage.toml:12"; none:
        // the default.
        std::map<std::string, std::string> origins;
        // The file that was read; empty: none.
        std::string file;
    };
    // One setting whose value differs between two choices, written as in the file.
    struct Change {
        std::string key;
        std::string before;
        std::string after;
        bool reloads = false;
    };

    // `flags`: the values of the command line by key. `file`: the file that the command line names;
    // not set: the variable BRANTEL_CONFIG or the one of the surroundings, if that exists; empty:
    // none.
    Configuration(std::vector<EngineName> engines, Surroundings surroundings,
                  std::map<std::string, Setting::Texts> flags, std::optional<std::string> file);

    // Throws std::invalid_argument when a flag is wrong and std::runtime_error when the environment
    // or the file is; the text says where (path and line, variable, flag) and what.
    Chosen Read() const;

    // What a running server takes over of the new choice; the rest stays as it is.
    ServerOptions Reload(const ServerOptions& running, const Chosen& wanted) const;
    std::vector<Change> Compare(const ServerOptions& before, const ServerOptions& after) const;

    // The settings in force as such a file, each with where it comes from, and who may connect.
    std::string Describe(const Chosen& chosen) const;

    // A file with every setting, its help and its default, all commented out.
    static std::string Example(const std::vector<EngineName>& engines);

  private:
    std::string FindFile() const;
    void TakeFile(Chosen& chosen) const;
    void TakeEnvironment(Chosen& chosen) const;
    void TakeFlags(Chosen& chosen) const;
    void Complete(Chosen& chosen) const;
    std::string DescribeAccess(const ServerOptions& options) const;

    const std::vector<EngineName> engines;
    const std::vector<Setting> settings;
    const Surroundings surroundings;
    const std::map<std::string, Setting::Texts> flags;
    const std::optional<std::string> file;
};

}  // namespace Brantel::Server
