#include "SettingTable.h"

#include "SettingText.h"

#include <libTracks/TrackSettings.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Brantel::Server {

namespace {

using Kind = Setting::Kind;
using Texts = Setting::Texts;
using Range = SettingText::Range;

constexpr auto highestSize = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
// Below lie the standard descriptors, which are in use.
constexpr std::uint64_t lowestReadyDescriptor = 3;

Setting Begin(const char* key, Kind kind, const char* placeholder, std::string help) {
    Setting setting;
    setting.key = key;
    setting.kind = kind;
    setting.placeholder = placeholder;
    setting.help = std::move(help);
    return setting;
}

// In each of the following, `access` gives the place of the value in the options, constant or not.

template <typename Access>
Setting MakeText(const char* key, const char* placeholder, std::string help, Access access) {
    Setting setting = Begin(key, Kind::Text, placeholder, std::move(help));
    setting.take = [access](ServerOptions& options, const Texts& texts) {
        access(options) = texts.front();
    };
    setting.show = [access](const ServerOptions& options) {
        return access(options).empty() ? Texts{} : Texts{access(options)};
    };
    return setting;
}

template <typename Access>
Setting MakeFlag(const char* key, std::string help, Access access) {
    Setting setting = Begin(key, Kind::Flag, "", std::move(help));
    setting.take = [access](ServerOptions& options, const Texts& texts) {
        access(options) = SettingText::ParseFlag(texts.front());
    };
    setting.show = [access](const ServerOptions& options) {
        return Texts{access(options) ? "true" : "false"};
    };
    return setting;
}

// One of several names; the option is an enumeration, or a bool, that counts as they do.
template <typename Access>
Setting MakeChoice(const char* key, const char* placeholder, std::string help,
                   const std::vector<std::string>& choices, Access access) {
    std::string all;
    for (const std::string& choice : choices) {
        all += (all.empty() ? "" : ", ") + choice;
    }
    Setting setting = Begin(key, Kind::Text, placeholder, std::move(help) + " (" + all + ")");
    setting.take = [choices, access](ServerOptions& options, const Texts& texts) {
        using Value = std::remove_reference_t<decltype(access(options))>;
        access(options) = static_cast<Value>(SettingText::ParseChoice(texts.front(), choices));
    };
    setting.show = [choices, access](const ServerOptions& options) {
        return Texts{choices.at(static_cast<std::size_t>(access(options)))};
    };
    return setting;
}

template <typename Access>
Setting MakeNumber(const char* key, const char* placeholder, const std::string& help, Range range,
                   Access access) {
    Setting setting = Begin(
        key, Kind::Number, placeholder,
        help + " (" + std::to_string(range.lowest) + " to " + std::to_string(range.highest) + ")");
    setting.take = [range, access](ServerOptions& options, const Texts& texts) {
        using Value = std::remove_reference_t<decltype(access(options))>;
        access(options) = static_cast<Value>(SettingText::ParseNumber(texts.front(), range));
    };
    setting.show = [access](const ServerOptions& options) {
        return Texts{std::to_string(access(options))};
    };
    return setting;
}

template <typename Access>
Setting MakeSize(const char* key, const std::string& help, Range range, Access access) {
    Setting setting = Begin(key, Kind::Size, "BYTES",
                            help + " (" + SettingText::OfSize(range.lowest) + " to " +
                                SettingText::OfSize(range.highest) + ")");
    setting.take = [range, access](ServerOptions& options, const Texts& texts) {
        access(options) = SettingText::ParseSize(texts.front(), range);
    };
    setting.show = [access](const ServerOptions& options) {
        return Texts{SettingText::OfSize(access(options))};
    };
    return setting;
}

Setting Reloading(Setting setting) {
    setting.reloads = true;
    return setting;
}

Setting Listen() {
    Setting setting =
        Begin("listen", Kind::List, "ADDRESS",
              "Where to listen, any number of times: unix:PATH or tcp:HOST:PORT; HOST * is "
              "every address of this machine, PORT 0 a free one. Default: the Unix-domain "
              "socket /run/brantel/storage.sock, for another user than root "
              "$XDG_RUNTIME_DIR/brantel/storage.sock; and none beside sockets that the "
              "service manager passes");
    setting.example = {"unix:/run/brantel/storage.sock", "tcp:127.0.0.1:4711"};
    setting.take = [](ServerOptions& options, const Texts& texts) {
        for (const std::string& text : texts) {
            options.listen.push_back(ListenAddress::Parse(text));
        }
    };
    setting.show = [](const ServerOptions& options) {
        Texts texts;
        for (const ListenAddress& address : options.listen) {
            texts.push_back(address.Text());
        }
        return texts;
    };
    return setting;
}

Setting SocketMode() {
    Setting setting =
        Begin("socket-mode", Kind::Text, "MODE",
              "Access mode of the Unix-domain sockets' files, octal, 0 to 777; connecting "
              "takes the right to write");
    setting.take = [](ServerOptions& options, const Texts& texts) {
        options.socketMode = SettingText::ParseMode(texts.front());
    };
    setting.show = [](const ServerOptions& options) {
        return Texts{SettingText::OfMode(options.socketMode)};
    };
    return setting;
}

Setting ReadyDescriptor() {
    Setting setting = MakeNumber(
        "ready-fd", "FD",
        "Descriptor that gets the addresses, one a line, and is then closed, once clients are "
        "served",
        {lowestReadyDescriptor, std::numeric_limits<int>::max()},
        [](auto& options) -> auto& { return options.readyDescriptor; });
    setting.show = [](const ServerOptions& options) {
        const int descriptor = options.readyDescriptor;
        return descriptor < 0 ? Texts{} : Texts{std::to_string(descriptor)};
    };
    setting.isFlagOnly = true;
    return setting;
}

SettingTable::Section Listening() {
    return {"Where it listens",
            {Listen(), SocketMode(),
             MakeFlag(
                 "insecure-listen",
                 "Accept TCP addresses that other machines reach: nobody is asked there who "
                 "he is",
                 [](auto& options) -> auto& { return options.listensInsecurely; }),
             MakeText(
                 "port-file", "PATH",
                 "File that gets the addresses with the ports taken, one a line, once "
                 "clients are served",
                 [](auto& options) -> auto& { return options.addressFile; }),
             ReadyDescriptor()}};
}

Setting Allow() {
    Setting setting =
        Begin("allow", Kind::List, "RULE",
              "Who may do what over a Unix-domain socket, any number of times: "
              "user:NAME=ROLE or group:NAME=ROLE, by name or number, with a role as in "
              "tcp-role; root and the server's own user are admin, others have no role "
              "unless they are given one");
    setting.example = {"user:camera=writer", "group:video=reader"};
    setting.take = [](ServerOptions& options, const Texts& texts) {
        for (const std::string& text : texts) {
            options.access.Allow(text);
        }
        options.accessRules = texts;
    };
    setting.show = [](const ServerOptions& options) { return options.accessRules; };
    return setting;
}

SettingTable::Section Access() {
    return {
        "Who may do what",
        {Reloading(Allow()), Reloading(MakeChoice(
                                 "tcp-role", "ROLE", "The role of all clients over TCP",
                                 {"none", "reader", "writer", "editor", "admin"},
                                 [](auto& options) -> auto& { return options.access.overTcp; }))}};
}

Setting Capacity() {
    Setting setting =
        Begin("capacity", Kind::Size, "BYTES",
              "Bytes that all tracks together can reserve, units as in 500MB or 2GiB, at "
              "least 1MiB; by default what the medium has, and 1GiB in memory");
    setting.take = [](ServerOptions& options, const Texts& texts) {
        options.capacity =
            SettingText::ParseSize(texts.front(), {ServerOptions::lowestCapacity, highestSize});
    };
    setting.show = [](const ServerOptions& options) {
        return options.capacity ? Texts{SettingText::OfSize(*options.capacity)} : Texts{};
    };
    setting.example = {"500GiB"};
    return setting;
}

Setting Durability() {
    Setting setting = Begin("durability", Kind::Text, "MODE",
                            "What an answered append survives, unless a track's property "
                            "storage.durability says otherwise: always, interval:NUMBERms, os");
    setting.take = [](ServerOptions& options, const Texts& texts) {
        try {
            options.durability = Tracks::TrackSettings::ParseDurability(texts.front());
        } catch (const std::runtime_error&) {
            throw std::invalid_argument(
                "Durability " + texts.front() +
                " is neither always, os nor interval:1ms to interval:" +
                std::to_string(Tracks::TrackSettings::longestIntervalMilliseconds) + "ms");
        }
    };
    setting.show = [](const ServerOptions& options) {
        return Texts{Tracks::TrackSettings::DescribeDurability(options.durability)};
    };
    return setting;
}

Setting EngineChoice(const std::vector<EngineName>& engines) {
    std::vector<std::string> names;
    names.reserve(engines.size());
    std::string all;
    for (const EngineName& engine : engines) {
        names.push_back(engine.name);
        all += (all.empty() ? "" : ", ") + engine.name;
    }
    Setting setting =
        Begin("engine", Kind::Text, "NAME", "What the tracks are kept on (" + all + ")");
    setting.take = [names](ServerOptions& options, const Texts& texts) {
        options.engine = names.at(SettingText::ParseChoice(texts.front(), names));
    };
    setting.show = [](const ServerOptions& options) { return Texts{options.engine}; };
    return setting;
}

SettingTable::Section Storage(const std::vector<EngineName>& engines) {
    Setting data = MakeText(
        "data", "FOLDER",
        "Folder that keeps the tracks, made when it is missing; for this server alone. Default: "
        "/var/lib/brantel, for another user than root $XDG_DATA_HOME/brantel or "
        "~/.local/share/brantel",
        [](auto& options) -> auto& { return options.dataFolder; });
    data.example = {"/var/lib/brantel"};
    return {
        "What keeps the tracks",
        {EngineChoice(engines), std::move(data), Capacity(),
         MakeSize(
             "keep-free", "Bytes of the medium that no track gets", {0, highestSize},
             [](auto& options) -> auto& { return options.keepFree; }),
         MakeChoice(
             "prepare", "HOW",
             "How a new track's space is taken: allocate asks the file system and is done "
             "at once; write fills it once, so that every append is as fast as all later "
             "ones",
             {"allocate", "write"}, [](auto& options) -> auto& { return options.writesNewSpace; }),
         Durability(),
         MakeChoice(
             "retention", "MODE",
             "What a full track does, unless its property storage.retention says "
             "otherwise: loop recycles its oldest chunks, stop refuses new ones",
             {"loop", "stop"}, [](auto& options) -> auto& { return options.retention; })}};
}

SettingTable::Section Limits() {
    SettingTable::Section section{"What clients can take", {}};
    for (const ServerLimits::Setting& limit : ServerLimits::settings) {
        const auto access = [value = limit.value](auto& options) -> auto& {
            return options.limits.*value;
        };
        const Range range{limit.lowest, limit.highest};
        const bool isSize = std::string_view(limit.unit) == "BYTES";
        Setting setting = isSize ? MakeSize(limit.name, limit.text, range, access)
                                 : MakeNumber(limit.name, limit.unit, limit.text, range, access);
        // The others are the listener's, whose options stay as they are.
        setting.reloads = limit.value == &ServerLimits::workersPerConnection ||
                          limit.value == &ServerLimits::idsPerRequest;
        section.settings.push_back(std::move(setting));
    }
    return section;
}

Setting Http() {
    Setting setting =
        Begin("http", Kind::Text, "ADDRESS",
              "Where metrics and health are served, without asking anybody who he is: "
              "HOST:PORT, or off");
    setting.take = [](ServerOptions& options, const Texts& texts) {
        options.http.reset();
        if (texts.front() != "off") {
            options.http = ListenAddress::Parse("tcp:" + texts.front());
        }
    };
    setting.show = [](const ServerOptions& options) {
        const std::string_view prefix = "tcp:";
        return Texts{options.http ? options.http->Text().substr(prefix.size()) : "off"};
    };
    return setting;
}

SettingTable::Section Watching() {
    Setting audit = MakeText(
        "audit-file", "PATH",
        "File that gets a line for every call that changes tracks, properties or protections, or "
        "that was denied; written at its end, opened anew by SIGHUP. Default: the log",
        [](auto& options) -> auto& { return options.log.auditFile; });
    audit.example = {"/var/log/brantel/audit.log"};
    return {"How it is watched",
            {Http(),
             Reloading(MakeChoice(
                 "log-format", "FORMAT", "How a line on the standard error looks", {"text", "json"},
                 [](auto& options) -> auto& { return options.log.format; })),
             Reloading(MakeChoice(
                 "log-level", "LEVEL", "The least that is logged",
                 {"error", "warning", "info", "debug"},
                 [](auto& options) -> auto& { return options.log.level; })),
             Reloading(MakeChoice(
                 "log-priority", "WHEN",
                 "Whether a line begins with its priority for the journal; auto: "
                 "when the standard error is the journal's",
                 {"auto", "always", "never"},
                 [](auto& options) -> auto& { return options.log.priority; })),
             Reloading(std::move(audit))}};
}

}  // namespace

std::vector<SettingTable::Section> SettingTable::Sections(const std::vector<EngineName>& engines) {
    return {Listening(), Access(), Storage(engines), Limits(), Watching()};
}

std::vector<Setting> SettingTable::All(const std::vector<EngineName>& engines) {
    std::vector<Setting> all;
    for (Section& section : Sections(engines)) {
        std::move(section.settings.begin(), section.settings.end(), std::back_inserter(all));
    }
    return all;
}

}  // namespace Brantel::Server
