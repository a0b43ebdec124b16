#include "CommandLine.h"

#include "Setting.h"
#include "SettingTable.h"

#include <CLI/CLI.hpp>

#include <map>
#include <stdexcept>
#include <utility>

namespace Brantel::Server {

namespace {

constexpr const char* program = "brantel-storaged";

// The flags of all settings, and what they were given.
class Flags {
  public:
    Flags(CLI::App& app, const std::vector<EngineName>& engines) {
        ServerOptions defaults;
        defaults.engine = engines.front().name;
        for (const SettingTable::Section& section : SettingTable::Sections(engines)) {
            for (const Setting& setting : section.settings) {
                Declare(app, setting, defaults)->group(section.title);
            }
        }
    }

    // Those that were given, by key.
    std::map<std::string, Setting::Texts> Given() const {
        std::map<std::string, Setting::Texts> given;
        for (const auto& [key, option] : options) {
            if (option->count() > 0) {
                given[key] = lists.contains(key) ? lists.at(key) : Setting::Texts{singles.at(key)};
            }
        }
        return given;
    }

  private:
    CLI::Option* Declare(CLI::App& app, const Setting& setting, const ServerOptions& defaults) {
        const std::string name = setting.FlagName();
        CLI::Option*& option = options[setting.key];
        if (setting.kind == Setting::Kind::Flag) {
            option = app.add_flag(name, singles[setting.key], setting.help);
            return option;
        }
        if (setting.kind == Setting::Kind::List) {
            option = app.add_option(name, lists[setting.key], setting.help);
            option->take_all()->expected(1);
        } else {
            option = app.add_option(name, singles[setting.key], setting.help);
            if (const Setting::Texts value = setting.show(defaults); !value.empty()) {
                option->default_str(value.front());
            }
        }
        option->type_name(setting.placeholder);
        return option;
    }

    std::map<std::string, CLI::Option*> options;
    std::map<std::string, std::string> singles;
    std::map<std::string, Setting::Texts> lists;
};

CommandLine Misuse(const CLI::App& app, const std::string& reason) {
    CommandLine result;
    result.text = std::string(program) + ": " + reason + "\n\n" + app.help();
    result.exitCode = CommandLine::misused;
    return result;
}

// Reads the arguments; not set: they are right.
std::optional<CommandLine> Read(CLI::App& app, const std::vector<std::string>& arguments) {
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return std::nullopt;
    } catch (const CLI::Success& done) {
        CommandLine result;
        result.text =
            done.get_name() == "CallForHelp" ? app.help() : std::string(done.what()) + "\n";
        return result;
    } catch (const CLI::ParseError& error) {
        return Misuse(app, error.what());
    }
}

CommandLine ParseCheck(const std::vector<std::string>& arguments) {
    StoreJob job;
    CLI::App app(
        "Reads everything in a store that no server uses, changes nothing, and lists each "
        "damaged chunk by track, time point, file and offset.\n"
        "Exit codes: 0 all is whole, 3 something is damaged, 1 it could not be checked",
        std::string(program) + " check");
    app.add_option("FOLDER", job.folder, "The store")->required();
    CommandLine result;
    if (std::optional<CommandLine> end = Read(app, arguments)) {
        return *std::move(end);
    }
    result.job = std::move(job);
    return result;
}

CommandLine ParseRecover(const std::vector<std::string>& arguments) {
    StoreJob job;
    job.kind = StoreJob::Kind::Recover;
    CLI::App app(
        "Copies what is whole in a store that no server uses into a new one, changes "
        "nothing in the first, and lists what is left out.\n"
        "Exit codes: 0 everything was copied, 3 something was damaged, 1 it failed",
        std::string(program) + " recover");
    app.add_option("FOLDER", job.folder, "The store")->required();
    app.add_option("NEW", job.target, "Folder of the new store, missing or empty")->required();
    CommandLine result;
    if (std::optional<CommandLine> end = Read(app, arguments)) {
        return *std::move(end);
    }
    result.job = std::move(job);
    return result;
}

CommandLine Print(const std::string& text) {
    CommandLine result;
    result.text = text;
    return result;
}

CommandLine Fail(const std::string& reason) {
    CommandLine result;
    result.text = std::string(program) + ": " + reason + "\n";
    result.exitCode = CommandLine::failed;
    return result;
}

CommandLine ParseServer(const std::vector<std::string>& arguments,
                        const std::vector<EngineName>& engines, const Surroundings& surroundings) {
    CLI::App app("Serves tracks to clients until SIGINT or SIGTERM arrives", program);
    app.set_version_flag("--version", std::string(program) + " " + BRANTEL_VERSION);
    std::string file;
    const CLI::Option* const config =
        app.add_option("--config", file,
                       "File of settings, in TOML, with the names of the flags as its keys; \"\" "
                       "is none. Default: " +
                           surroundings.settingsFile + ", if it exists")
            ->type_name("FILE");
    bool checks = false;
    bool printsExample = false;
    app.add_flag("--check-config", checks,
                 "Show the settings in force, where each comes from, and who may connect, and end");
    app.add_flag("--print-example-config", printsExample,
                 "Show a file with all settings, explained, and end");
    const Flags flags(app, engines);
    app.footer(
        "Each flag of a setting is also a variable of the environment, BRANTEL_... in capitals,\n"
        "with _ for -, and a key of the file; a flag beats the variable, that the file.\n\n" +
        std::string(program) + " check FOLDER         checks a store that no server uses\n" +
        program + " recover FOLDER NEW   copies what is whole in it into a new one\n");
    if (std::optional<CommandLine> end = Read(app, arguments)) {
        return *std::move(end);
    }
    if (printsExample) {
        return Print(Configuration::Example(engines));
    }
    try {
        CommandLine result;
        result.configuration.emplace(
            engines, surroundings, flags.Given(),
            config->count() > 0 ? std::optional<std::string>(file) : std::nullopt);
        const Configuration::Chosen chosen = result.configuration->Read();
        if (checks) {
            return Print(result.configuration->Describe(chosen));
        }
        result.options = chosen.options;
        return result;
    } catch (const std::invalid_argument& error) {
        return Misuse(app, error.what());
    } catch (const std::runtime_error& error) {
        return Fail(error.what());
    }
}

}  // namespace

std::string CommandLine::Version() {
    return BRANTEL_VERSION;
}

CommandLine CommandLine::Parse(const std::vector<std::string>& arguments,
                               const std::vector<EngineName>& engines,
                               const Surroundings& surroundings) {
    const std::string first = arguments.empty() ? std::string() : arguments.front();
    if (first == "check") {
        return ParseCheck({arguments.begin() + 1, arguments.end()});
    }
    if (first == "recover") {
        return ParseRecover({arguments.begin() + 1, arguments.end()});
    }
    return ParseServer(arguments, engines, surroundings);
}

}  // namespace Brantel::Server
