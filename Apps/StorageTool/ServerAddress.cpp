#include "ServerAddress.h"

#include "ExitCodes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Brantel::Tool {

namespace {

constexpr std::string_view unixPrefix = "unix:";
constexpr std::string_view tcpPrefix = "tcp:";

bool ReadHostAndPort(std::string_view text, ServerAddress& address) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        return false;
    }
    const std::string_view port = text.substr(colon + 1);
    const char* const end = port.data() + port.size();
    const auto [rest, error] = std::from_chars(port.data(), end, address.port);
    if (error != std::errc() || rest != end || address.port == 0) {
        return false;
    }
    std::string_view host = text.substr(0, colon);
    const bool inBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (inBrackets) {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string_view::npos) {
        return false;
    }
    address.host = host;
    return true;
}

}  // namespace

ServerAddress ServerAddress::Parse(const std::string& text) {
    const std::string_view view = text;
    ServerAddress address;
    address.text = text;
    if (view.starts_with(unixPrefix) && view.size() > unixPrefix.size()) {
        address.path = view.substr(unixPrefix.size());
        return address;
    }
    if (view.starts_with(tcpPrefix) && ReadHostAndPort(view.substr(tcpPrefix.size()), address)) {
        return address;
    }
    throw Misuse("Server address " + text +
                 " is neither unix:PATH nor tcp:HOST:PORT with a port from 1 to 65535");
}

ServerAddress ServerAddress::Default(bool isRoot, const std::string& runtimeFolder) {
    if (!isRoot && runtimeFolder.empty()) {
        throw Misuse(
            "No server address: give --server or BRANTEL_SERVER, or set XDG_RUNTIME_DIR, which "
            "holds the default socket");
    }
    return Parse("unix:" + (isRoot ? std::string("/run") : runtimeFolder) +
                 "/brantel/storage.sock");
}

ServerAddress ServerAddress::Choose(const std::string& option, const std::string& variable) {
    if (!option.empty() || !variable.empty()) {
        return Parse(option.empty() ? variable : option);
    }
    const char* const runtimeFolder = std::getenv("XDG_RUNTIME_DIR");
    return Default(geteuid() == 0, runtimeFolder == nullptr ? "" : runtimeFolder);
}

void ServerAddress::Connect(ProtocolX::StorageClientX& client,
                            unsigned int timeoutMilliseconds) const {
    const bool connected =
        path.empty() ? client.ConnectToSlave(host, static_cast<short>(port), timeoutMilliseconds)
                     : client.ConnectToSlave(path);
    if (!connected) {
        throw std::runtime_error("No storage server answers at " + text + DescribeAbsence() +
                                 "\nStart one with: brantel-storaged --data FOLDER --listen " +
                                 text + "\nor name another with --server or BRANTEL_SERVER");
    }
}

// The library does not say why it could not connect; a file can be looked at.
std::string ServerAddress::DescribeAbsence() const {
    if (path.empty()) {
        return {};
    }
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return ": " + std::generic_category().message(errno);
    }
    if (!S_ISSOCK(status.st_mode)) {
        return ": that is not a socket";
    }
    if (access(path.c_str(), W_OK) != 0) {
        return ": " + std::generic_category().message(errno);
    }
    return ": the socket is there, but nobody listens on it";
}

}  // namespace Brantel::Tool
