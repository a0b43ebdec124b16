#include "CommandLine.h"

#include <libTracks/TrackSettings.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace Brantel::Server {

namespace {

constexpr const char* program = "brantel-storaged";
// Below lie the standard descriptors, which are in use.
constexpr int lowestReadyDescriptor = 3;

std::string CheckAddress(const std::string& text) {
    try {
        ListenAddress::Parse(text);
        return {};
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

std::string CheckMode(const std::string& text) {
    const bool isOctal = !text.empty() && text.size() <= 4 &&
                         std::all_of(text.begin(), text.end(),
                                     [](char digit) { return digit >= '0' && digit <= '7'; });
    if (!isOctal || std::stoul(text, nullptr, 8) > 0777) {
        return "Mode " + text + " is not an octal number from 0 to 777";
    }
    return {};
}

std::string CheckAccess(const std::string& text) {
    try {
        AccessRules().Allow(text);
        return {};
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

std::string CheckDurability(const std::string& text) {
    try {
        Tracks::TrackSettings::ParseDurability(text);
        return {};
    } catch (const std::runtime_error&) {
        return "Durability " + text + " is neither always, os nor interval:1ms to interval:" +
               std::to_string(Tracks::TrackSettings::longestIntervalMilliseconds) + "ms";
    }
}

// Bounds of a number as a check of CLI11, in words.
CLI::Validator Within(std::uint64_t lowest, std::uint64_t highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        std::uint64_t value = 0;
        if (!CLI::detail::lexical_cast(text, value) || value < lowest || value > highest) {
            return text + " is not within " + std::to_string(lowest) + " to " +
                   std::to_string(highest);
        }
        return {};
    };
    return {check, std::to_string(lowest) + " to " + std::to_string(highest), "within"};
}

struct Texts {
    std::vector<std::string> listen;
    std::string socketMode = "660";
    std::vector<std::string> allow;
    std::string overTcp = "reader";
    std::string durability = "always";
    std::string preparation = "write";
};

void DeclareListening(CLI::App& app, ServerOptions& options, Texts& texts) {
    app.add_option("--listen", texts.listen,
                   "Where to listen, any number of times: unix:PATH or tcp:HOST:PORT; HOST * is "
                   "every address of this machine, PORT 0 a free one. Default: the Unix-domain "
                   "socket /run/brantel/storage.sock, for another user than root "
                   "$XDG_RUNTIME_DIR/brantel/storage.sock")
        ->take_all()
        ->expected(1)
        ->type_name("ADDRESS")
        ->check(CLI::Validator(&CheckAddress, ""));
    app.add_flag("--insecure-listen", options.listensInsecurely,
                 "Accept TCP addresses that other machines reach: anybody there can do everything");
    app.add_option("--socket-mode", texts.socketMode,
                   "Access mode of the Unix-domain sockets' files (octal); connecting takes the "
                   "right to write")
        ->capture_default_str()
        ->type_name("MODE")
        ->check(CLI::Validator(&CheckMode, ""));
    app.add_option("--port-file", options.addressFile,
                   "File that gets the addresses with the ports taken, one a line, once clients "
                   "are served")
        ->type_name("PATH");
    app.add_option("--ready-fd", options.readyDescriptor,
                   "Descriptor that gets the addresses, one a line, and is then closed, once "
                   "clients are served")
        ->type_name("FD")
        ->check(Within(lowestReadyDescriptor, std::numeric_limits<int>::max()));
}

void DeclareLimits(CLI::App& app, ServerLimits& limits) {
    for (const ServerLimits::Setting& setting : ServerLimits::settings) {
        CLI::Option* const option =
            app.add_option(std::string("--") + setting.name, limits.*setting.value, setting.text);
        option->capture_default_str()->type_name(setting.unit);
        if (std::string_view(setting.unit) == "BYTES") {
            option->transform(CLI::AsSizeValue(true));
        }
        option->check(Within(setting.lowest, setting.highest));
    }
}

void DeclareAccess(CLI::App& app, Texts& texts) {
    app.add_option("--allow", texts.allow,
                   "Who may do what over a Unix-domain socket, any number of times: "
                   "user:NAME=ROLE or group:NAME=ROLE, by name or number; root and the server's "
                   "own user are admin, others have no role unless they are given one")
        ->take_all()
        ->expected(1)
        ->type_name("RULE")
        ->check(CLI::Validator(&CheckAccess, ""));
    app.add_option("--tcp-role", texts.overTcp, "The role of all clients over TCP")
        ->capture_default_str()
        ->type_name("ROLE")
        ->check(CLI::IsMember({"none", "reader", "writer", "editor", "admin"}));
}

void DeclareStorage(CLI::App& app, ServerOptions& options, Texts& texts,
                    const std::vector<EngineName>& engines) {
    constexpr auto highestSize =
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const CLI::AsSizeValue asSize(true);
    std::vector<std::string> names;
    names.reserve(engines.size());
    for (const EngineName& engine : engines) {
        names.push_back(engine.name);
    }
    options.engine = names.front();
    app.add_option("--engine", options.engine, "What the tracks are kept on")
        ->capture_default_str()
        ->type_name("NAME")
        ->check(CLI::IsMember(names));
    app.add_option("--data", options.dataFolder,
                   "Folder that keeps the tracks, made when it is missing; for this server alone")
        ->type_name("FOLDER");
    app.add_option("--durability", texts.durability,
                   "What an answered append survives, unless a track's property "
                   "storage.durability says otherwise: always, interval:NUMBERms, os")
        ->capture_default_str()
        ->type_name("MODE")
        ->check(CLI::Validator(&CheckDurability, ""));
    app.add_option("--capacity", options.capacity,
                   "Bytes that all tracks together can reserve, units as in 500MB or 2GiB; by "
                   "default what the medium has, and 1GiB in memory")
        ->type_name("BYTES")
        ->transform(asSize)
        ->check(Within(ServerOptions::lowestCapacity, highestSize));
    app.add_option("--keep-free", options.keepFree, "Bytes of the medium that no track gets")
        ->capture_default_str()
        ->type_name("BYTES")
        ->transform(asSize)
        ->check(Within(0, highestSize));
    app.add_option("--prepare", texts.preparation,
                   "How a new track's space is taken: write fills it once, so that every append "
                   "is as fast as all later ones; allocate asks the file system and is done at "
                   "once")
        ->capture_default_str()
        ->type_name("HOW")
        ->check(CLI::IsMember({"write", "allocate"}));
}

// What no check of a single option finds; empty: nothing.
std::string FindContradiction(const ServerOptions& options,
                              const std::vector<EngineName>& engines) {
    if (const std::string reason = options.limits.FindContradiction(); !reason.empty()) {
        return reason;
    }
    for (const EngineName& engine : engines) {
        if (engine.name != options.engine) {
            continue;
        }
        if (engine.keepsFiles && options.dataFolder.empty()) {
            return "--data is required: the engine " + engine.name +
                   " keeps the tracks in a folder";
        }
        if (!engine.keepsFiles && !options.dataFolder.empty()) {
            return "--data " + options.dataFolder + " makes no sense: the engine " + engine.name +
                   " keeps no files";
        }
    }
    return {};
}

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

CommandLine ParseServer(const std::vector<std::string>& arguments,
                        const std::vector<EngineName>& engines) {
    CommandLine result;
    ServerOptions options;
    Texts texts;
    CLI::App app("Serves tracks to clients until SIGINT, SIGTERM or SIGHUP arrives", program);
    app.set_version_flag("--version", std::string(program) + " " + BRANTEL_VERSION);
    DeclareListening(app, options, texts);
    DeclareAccess(app, texts);
    DeclareLimits(app, options.limits);
    DeclareStorage(app, options, texts, engines);
    app.footer(std::string(program) + " check FOLDER         checks a store that no server uses\n" +
               program + " recover FOLDER NEW   copies what is whole in it into a new one\n");
    if (std::optional<CommandLine> end = Read(app, arguments)) {
        return *std::move(end);
    }
    if (const std::string reason = FindContradiction(options, engines); !reason.empty()) {
        return Misuse(app, reason);
    }
    for (const std::string& text : texts.listen) {
        options.listen.push_back(ListenAddress::Parse(text));
    }
    options.socketMode = static_cast<unsigned int>(std::stoul(texts.socketMode, nullptr, 8));
    for (const std::string& text : texts.allow) {
        options.access.Allow(text);
    }
    options.access.overTcp = FindRole(texts.overTcp).value_or(Role::None);
    options.durability = Tracks::TrackSettings::ParseDurability(texts.durability);
    options.writesNewSpace = texts.preparation == "write";
    result.options = std::move(options);
    return result;
}

}  // namespace

CommandLine CommandLine::Parse(const std::vector<std::string>& arguments,
                               const std::vector<EngineName>& engines) {
    const std::string first = arguments.empty() ? std::string() : arguments.front();
    if (first == "check") {
        return ParseCheck({arguments.begin() + 1, arguments.end()});
    }
    if (first == "recover") {
        return ParseRecover({arguments.begin() + 1, arguments.end()});
    }
    return ParseServer(arguments, engines);
}

}  // namespace Brantel::Server
