#include "Configuration.h"

#include "ConfigurationFile.h"
#include "DefaultSocket.h"
#include "Role.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Brantel::Server {

namespace {

constexpr std::size_t helpColumns = 96;

// What lies between the commas.
Setting::Texts Split(const std::string& text) {
    Setting::Texts parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        parts.push_back(part);
    }
    return parts;
}

// The words as comment lines.
std::string Comment(const std::string& words) {
    std::string lines;
    std::string line = "#";
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        if (line.size() + 1 + word.size() > helpColumns) {
            lines += line + "\n";
            line = "#";
        }
        line += " " + word;
    }
    return lines + line + "\n";
}

// As a comment of one line, whatever it holds.
std::string OnOneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return std::iscntrl(byte) != 0; }, '?');
    return text;
}

// Refuses the value in the name of where it stands.
void Take(const Setting& setting, const Setting::Texts& texts, ServerOptions& options,
          const std::string& where) {
    try {
        setting.take(options, texts);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(where + ": " + error.what());
    }
}

void TakeFlag(const Setting& setting, const Setting::Texts& texts, ServerOptions& options) {
    try {
        setting.take(options, texts);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(setting.FlagName() + ": " + error.what());
    }
}

// What no single value is wrong with; wrong arguments when there is nothing but them.
[[noreturn]] void RefuseTogether(const Configuration::Chosen& chosen, const std::string& reason) {
    for (const auto& [key, origin] : chosen.origins) {
        if (origin != "flag") {
            throw std::runtime_error(reason);
        }
    }
    throw std::invalid_argument(reason);
}

// By other machines. What a name stands for is found out at the start alone.
bool MayBeReached(const std::string& host) {
    return !host.starts_with("127.") && host != "::1" && host != "localhost";
}

bool KeepsFiles(const std::vector<EngineName>& engines, const std::string& name) {
    for (const EngineName& engine : engines) {
        if (engine.name == name) {
            return engine.keepsFiles;
        }
    }
    return false;
}

}  // namespace

Configuration::Configuration(std::vector<EngineName> givenEngines, Surroundings surroundings,
                             std::map<std::string, Setting::Texts> flags,
                             std::optional<std::string> file)
    : engines(std::move(givenEngines)),
      settings(SettingTable::All(engines)),
      surroundings(std::move(surroundings)),
      flags(std::move(flags)),
      file(std::move(file)) {}

Configuration::Chosen Configuration::Read() const {
    Chosen chosen;
    chosen.options.engine = engines.front().name;
    // From the strongest to the weakest, so that what is overridden need not be right for this
    // machine, but must be readable.
    TakeFlags(chosen);
    TakeEnvironment(chosen);
    TakeFile(chosen);
    Complete(chosen);
    return chosen;
}

void Configuration::TakeFlags(Chosen& chosen) const {
    for (const Setting& setting : settings) {
        const auto flag = flags.find(setting.key);
        if (flag != flags.end()) {
            TakeFlag(setting, flag->second, chosen.options);
            chosen.origins[setting.key] = "flag";
        }
    }
}

void Configuration::TakeEnvironment(Chosen& chosen) const {
    for (const Setting& setting : settings) {
        const auto value = surroundings.Find(setting.VariableName());
        if (!value || setting.isFlagOnly || chosen.origins.contains(setting.key)) {
            continue;
        }
        const bool isList = setting.kind == Setting::Kind::List;
        Take(setting, isList ? Split(*value) : Setting::Texts{*value}, chosen.options,
             setting.VariableName());
        chosen.origins[setting.key] = "environment";
    }
}

std::string Configuration::FindFile() const {
    if (file) {
        return *file;
    }
    if (const auto named = surroundings.Find("BRANTEL_CONFIG")) {
        return *named;
    }
    const bool isThere =
        !surroundings.settingsFile.empty() && access(surroundings.settingsFile.c_str(), F_OK) == 0;
    return isThere ? surroundings.settingsFile : std::string();
}

void Configuration::TakeFile(Chosen& chosen) const {
    chosen.file = FindFile();
    if (chosen.file.empty()) {
        return;
    }
    const auto values = ConfigurationFile::Read(chosen.file, settings);
    for (const Setting& setting : settings) {
        const auto value = values.find(setting.key);
        if (value == values.end() || chosen.origins.contains(setting.key)) {
            continue;
        }
        const std::string place = chosen.file + ":" + std::to_string(value->second.line);
        Take(setting, value->second.texts, chosen.options,
             place + ": " + setting.key + " = " + value->second.written);
        chosen.origins[setting.key] = place;
    }
}

void Configuration::Complete(Chosen& chosen) const {
    ServerOptions& options = chosen.options;
    if (const std::string reason = options.limits.FindContradiction(); !reason.empty()) {
        RefuseTogether(chosen, reason);
    }
    if (!KeepsFiles(engines, options.engine)) {
        const auto data = chosen.origins.find("data");
        if (data != chosen.origins.end() && data->second == "flag") {
            throw std::invalid_argument("--data " + options.dataFolder +
                                        " makes no sense: the engine " + options.engine +
                                        " keeps no files");
        }
        options.dataFolder.clear();
        return;
    }
    if (options.dataFolder.empty()) {
        options.dataFolder = surroundings.DataFolder();
    }
    if (options.dataFolder.empty()) {
        RefuseTogether(chosen, "The engine " + options.engine +
                                   " keeps the tracks in a folder: name it by --data, or set "
                                   "XDG_DATA_HOME or HOME");
    }
}

ServerOptions Configuration::Reload(const ServerOptions& running, const Chosen& wanted) const {
    ServerOptions result = running;
    // All rules come from the new choice: they are no more than added to.
    result.access = wanted.options.access;
    for (const Setting& setting : settings) {
        const Setting::Texts texts = setting.show(wanted.options);
        if (setting.reloads && (!texts.empty() || setting.kind == Setting::Kind::List)) {
            setting.take(result, texts);
        }
    }
    result.log.auditFile = wanted.options.log.auditFile;
    return result;
}

std::vector<Configuration::Change> Configuration::Compare(const ServerOptions& before,
                                                          const ServerOptions& after) const {
    std::vector<Change> changes;
    for (const Setting& setting : settings) {
        const std::string old = ConfigurationFile::Write(setting, setting.show(before));
        const std::string now = ConfigurationFile::Write(setting, setting.show(after));
        if (old != now) {
            changes.push_back({setting.key, old, now, setting.reloads});
        }
    }
    return changes;
}

std::string Configuration::Describe(const Chosen& chosen) const {
    std::ostringstream text;
    text << "# " << (chosen.file.empty() ? "No file of settings" : OnOneLine(chosen.file)) << "\n";
    ServerOptions options = chosen.options;
    if (options.listen.empty()) {
        try {
            options.listen = {DefaultSocket::Find(
                surroundings.isRoot, surroundings.Find("XDG_RUNTIME_DIR").value_or(""))};
        } catch (const std::runtime_error&) {
            // Without an address a server starts only with sockets that are passed to it.
        }
    }
    for (const Setting& setting : settings) {
        const Setting::Texts value = setting.show(options);
        const auto origin = chosen.origins.find(setting.key);
        if (setting.isFlagOnly && origin == chosen.origins.end()) {
            continue;
        }
        const bool isSet = !value.empty();
        text << (isSet ? "" : "#") << setting.key << " = "
             << (isSet ? ConfigurationFile::Write(setting, value) : "not set") << "  # "
             << (origin == chosen.origins.end() ? "default" : OnOneLine(origin->second)) << "\n";
    }
    return text.str() + DescribeAccess(options);
}

std::string Configuration::DescribeAccess(const ServerOptions& options) const {
    std::string text = "\n# Who may connect:\n";
    for (const ListenAddress& address : options.listen) {
        text += "#   " + OnOneLine(address.Text()) + "\n";
        if (address.kind == ListenAddress::Kind::Tcp) {
            text += "#     everybody: " + std::string(NameOf(options.access.overTcp)) + "\n";
            if (!options.listensInsecurely && MayBeReached(address.host)) {
                text += "#     but other machines may reach it: refused without insecure-listen\n";
            }
            continue;
        }
        text += "#     root";
        text += surroundings.isRoot ? ": admin\n" : " and " + surroundings.user + ": admin\n";
        for (const std::string& rule : options.accessRules) {
            const std::size_t equals = rule.rfind('=');
            text += "#     " + rule.substr(0, equals) + ": " + rule.substr(equals + 1) + "\n";
        }
        text += "#     everybody else whom the mode of the file lets in: none\n";
    }
    return text;
}

std::string Configuration::Example(const std::vector<EngineName>& engines) {
    ServerOptions defaults;
    defaults.engine = engines.front().name;
    std::string text =
        "# The settings of brantel-storaged, each with its default or an example, commented out.\n"
        "#\n"
        "# A flag of the command line, --KEY VALUE, comes before the variable BRANTEL_KEY of the\n"
        "# environment (capitals, _ for -, commas within a list), which comes before this file.\n"
        "# brantel-storaged --check-config shows what is in force and where it comes from.\n"
        "# SIGHUP lets a running server read this file again.\n";
    for (const SettingTable::Section& section : SettingTable::Sections(engines)) {
        text += "\n# ---- " + section.title + " ----\n";
        for (const Setting& setting : section.settings) {
            if (setting.isFlagOnly) {
                continue;
            }
            const Setting::Texts value = setting.show(defaults);
            const bool isExample = value.empty() && !setting.example.empty();
            text += "\n" + Comment(setting.help + ". " +
                                   (setting.reloads ? "SIGHUP takes a change over."
                                                    : "A change needs a restart.") +
                                   (isExample ? " Example:" : ""));
            text += "#" + setting.key + " = " +
                    ConfigurationFile::Write(setting, isExample ? setting.example : value) + "\n";
        }
    }
    return text;
}

}  // namespace Brantel::Server
