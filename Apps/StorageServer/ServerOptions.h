#pragma once

#include "AccessRules.h"
#include "ListenAddress.h"
#include "LogOptions.h"
#include "ServerLimits.h"

#include <libEngine/EngineTypes.h>
#include <libTracks/TrackSettings.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Server {

// What an operator chooses; SettingTable says how. A value.
struct ServerOptions {
    // None: one Unix-domain socket in a folder of its own, see DefaultSocket.
    std::vector<ListenAddress> listen;
    // Whether a TCP address that other machines reach is accepted, although anybody there can then
    // do everything.
    bool listensInsecurely = false;
    // Who may do what.
    AccessRules access;
    // The rules in it, as they were written.
    std::vector<std::string> accessRules;
    // The access mode of the Unix-domain sockets' files, 0 to 0777.
    unsigned int socketMode = 0660;
    // One of the names that the parser was given.
    std::string engine;
    // The folder of an engine that keeps files; empty for the others.
    std::string dataFolder;
    // How many bytes the tracks can reserve, all together; at least lowestCapacity. Not set: what
    // the medium has, or the engine's own default.
    std::optional<std::uint64_t> capacity;
    // Bytes of the medium that no track gets.
    std::uint64_t keepFree = std::uint64_t{256} << 20U;
    // Whether the space of a new track is written once with zeros, which makes its first lap as
    // fast as all others, or only asked of the file system, which is done at once.
    bool writesNewSpace = true;
    // Of tracks that have none of their own.
    Engine::Durability durability;
    Tracks::TrackSettings::Retention retention = Tracks::TrackSettings::Retention::Loop;
    // What clients can take.
    ServerLimits limits;
    // Where metrics and health are served over HTTP; not set: nowhere.
    std::optional<ListenAddress> http =
        ListenAddress{ListenAddress::Kind::Tcp, {}, "127.0.0.1", ListenAddress::defaultHttpPort};
    LogOptions log;
    // A file that gets the addresses, one a line, once the server serves; empty: none.
    std::string addressFile;
    // Descriptors of sockets that listen already, which whoever started the server passed; the
    // server takes them over.
    std::vector<int> passedSockets;
    // A descriptor that gets the addresses and is then closed, once the server serves; -1: none.
    int readyDescriptor = -1;

    static constexpr std::uint64_t lowestCapacity = std::uint64_t{1} << 20U;
};

}  // namespace Brantel::Server
