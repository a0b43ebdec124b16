#include "ServerAddress.h"

#include <charconv>
#include <stdexcept>

namespace Brantel::MovieDemo {

ServerAddress ServerAddress::Parse(const std::string& text) {
    const std::string unixPrefix = "unix:";
    const std::string tcpPrefix = "tcp:";
    ServerAddress address;
    address.text = text;
    if (text.starts_with(unixPrefix) && text.size() > unixPrefix.size()) {
        address.path = text.substr(unixPrefix.size());
        return address;
    }
    const std::size_t colon = text.rfind(':');
    const char* const end = text.data() + text.size();
    if (text.starts_with(tcpPrefix) && colon > tcpPrefix.size()) {
        const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, address.port);
        if (error == std::errc() && rest == end && address.port != 0) {
            address.host = text.substr(tcpPrefix.size(), colon - tcpPrefix.size());
            if (address.host.front() == '[' && address.host.back() == ']') {
                address.host = address.host.substr(1, address.host.size() - 2);
            }
            return address;
        }
    }
    throw std::runtime_error(text + " is neither unix:PATH nor tcp:HOST:PORT");
}

void ServerAddress::Connect(ProtocolX::StorageClientX& client) const {
    constexpr unsigned int timeoutMilliseconds = 10'000;
    const bool connected =
        path.empty() ? client.ConnectToSlave(host, static_cast<short>(port), timeoutMilliseconds)
                     : client.ConnectToSlave(path);
    if (!connected) {
        throw std::runtime_error("Could not connect to a storage at " + text);
    }
}

}  // namespace Brantel::MovieDemo
