#include "ListenAddress.h"

#include <charconv>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Brantel::Server {

namespace {

constexpr std::string_view unixPrefix = "unix:";
constexpr std::string_view tcpPrefix = "tcp:";

[[noreturn]] void Refuse(const std::string& text, const std::string& reason) {
    throw std::invalid_argument("Address " + text + ": " + reason);
}

unsigned short ParsePort(const std::string& text, const std::string& digits) {
    unsigned int port = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, port);
    constexpr unsigned int highestPort = std::numeric_limits<unsigned short>::max();
    if (error == std::errc::result_out_of_range || (error == std::errc() && port > highestPort)) {
        Refuse(text, "port " + digits + " is over the limit of " + std::to_string(highestPort));
    }
    if (error != std::errc() || rest != end) {
        Refuse(text, "\"" + digits + "\" is no port, which is a number from 0 to " +
                         std::to_string(highestPort));
    }
    return static_cast<unsigned short>(port);
}

std::string ParseHost(const std::string& text, const std::string& host) {
    if (host == "*") {
        return {};
    }
    if (host.empty()) {
        Refuse(text, "the host is missing (* stands for every address of this machine)");
    }
    if (host.front() == '[') {
        if (host.back() != ']' || host.size() < 3) {
            Refuse(text, "an address in brackets, as in tcp:[::1]:4711, does not end");
        }
        return host.substr(1, host.size() - 2);
    }
    if (host.find(':') != std::string::npos) {
        Refuse(text, "an IPv6 address stands in brackets, as in tcp:[::1]:4711");
    }
    return host;
}

}  // namespace

ListenAddress ListenAddress::Parse(const std::string& text) {
    ListenAddress address;
    if (text.starts_with(unixPrefix)) {
        address.path = text.substr(unixPrefix.size());
        if (address.path.empty()) {
            Refuse(text, "the path is missing");
        }
        return address;
    }
    if (!text.starts_with(tcpPrefix)) {
        Refuse(text, "it begins with neither unix: nor tcp:");
    }
    const std::string rest = text.substr(tcpPrefix.size());
    const std::size_t colon = rest.rfind(':');
    if (colon == std::string::npos || rest.back() == ']') {
        Refuse(text, "the port is missing, as in tcp:localhost:4711");
    }
    address.kind = Kind::Tcp;
    address.host = ParseHost(text, rest.substr(0, colon));
    address.port = ParsePort(text, rest.substr(colon + 1));
    return address;
}

std::string ListenAddress::Text() const {
    if (kind == Kind::Unix) {
        return std::string(unixPrefix) + path;
    }
    const bool isIpV6 = host.find(':') != std::string::npos;
    const std::string shown = host.empty() ? "*" : isIpV6 ? "[" + host + "]" : host;
    return std::string(tcpPrefix) + shown + ":" + std::to_string(port);
}

}  // namespace Brantel::Server
