#include "Surroundings.h"

#include <pwd.h>
#include <unistd.h>

#include <string_view>

namespace Brantel::Server {

Surroundings Surroundings::OfProcess() {
    Surroundings result;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string_view::npos) {
            result.environment.emplace(text.substr(0, equals), text.substr(equals + 1));
        }
    }
    const uid_t user = geteuid();
    result.isRoot = user == 0;
    // Before there are other threads.
    const passwd* const entry = getpwuid(user);
    result.user = entry == nullptr ? std::to_string(user) : entry->pw_name;
    result.settingsFile = "/etc/brantel/storage.toml";
    return result;
}

std::optional<std::string> Surroundings::Find(const std::string& variable) const {
    const auto found = environment.find(variable);
    if (found == environment.end() || found->second.empty()) {
        return std::nullopt;
    }
    return found->second;
}

std::string Surroundings::DataFolder() const {
    if (isRoot) {
        return "/var/lib/brantel";
    }
    if (const auto data = Find("XDG_DATA_HOME")) {
        return *data + "/brantel";
    }
    if (const auto home = Find("HOME")) {
        return *home + "/.local/share/brantel";
    }
    return {};
}

}  // namespace Brantel::Server
