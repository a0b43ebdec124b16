#pragma once

#include <string>

namespace Brantel::Server {

// Where a server listens, as it is written on the command line:
//
//     unix:PATH        a Unix-domain socket
//     tcp:HOST:PORT    HOST: a name, an IPv4 address, an IPv6 address in brackets, or * for every
//                      address of this machine; PORT: 0 to 65535, 0 takes a free one
//
// A value.
struct ListenAddress {
    enum class Kind { Unix, Tcp };
    // Where metrics are served when nobody says otherwise.
    static constexpr unsigned short defaultHttpPort = 9187;

    // Throws std::invalid_argument that names the text and what is wrong with it.
    static ListenAddress Parse(const std::string& text);
    // The reverse of it.
    std::string Text() const;
    bool IsDefaultHttp() const {
        return kind == Kind::Tcp && host == "127.0.0.1" && port == defaultHttpPort;
    }

    Kind kind = Kind::Unix;
    // Of a Unix-domain socket.
    std::string path;
    // Of a TCP address; the host is empty for every address of this machine.
    std::string host;
    unsigned short port = 0;
};

}  // namespace Brantel::Server
