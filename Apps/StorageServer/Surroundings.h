#pragma once

#include <map>
#include <optional>
#include <string>

namespace Brantel::Server {

// What the system tells a server about its place. A value.
struct Surroundings {
    // Of this process.
    static Surroundings OfProcess();

    // The value of a variable; not set when it is missing or empty.
    std::optional<std::string> Find(const std::string& variable) const;

    // Where a server keeps its tracks when nobody says otherwise: /var/lib/brantel for root,
    // $XDG_DATA_HOME/brantel or ~/.local/share/brantel for everybody else; empty when the
    // environment names none.
    std::string DataFolder() const;

    std::map<std::string, std::string> environment;
    bool isRoot = false;
    // Who runs the server, for people: "root", or the number of a user without a name.
    std::string user;
    // The file of settings that is read if it exists; empty: none.
    std::string settingsFile;
};

}  // namespace Brantel::Server
