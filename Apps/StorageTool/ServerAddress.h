#pragma once

#include <libProtocolX/StorageClientX.h>

#include <string>

namespace Brantel::Tool {

// Where a storage is: unix:PATH or tcp:HOST:PORT. A value.
struct ServerAddress {
    // Throws Misuse that names the text. HOST may be an IPv6 address in brackets; PORT is 1 to
    // 65535.
    static ServerAddress Parse(const std::string& text);

    // The socket that a server listens on when nobody says otherwise: storage.sock in
    // /run/brantel for root, in the folder brantel of $XDG_RUNTIME_DIR for everybody else.
    // `runtimeFolder`: what that variable holds, empty when it is not set; throws Misuse when it
    // is needed and empty.
    static ServerAddress Default(bool isRoot, const std::string& runtimeFolder);

    // The first of these that is not empty, or the default socket of this user.
    static ServerAddress Choose(const std::string& option, const std::string& variable);

    // Connects within this time, at least over TCP; 0 waits as long as the system does. Throws
    // std::runtime_error that says what is missing at the address, and how a server is started.
    void Connect(ProtocolX::StorageClientX& client, unsigned int timeoutMilliseconds) const;

    // As it was given.
    std::string text;
    // Of a Unix-domain socket; otherwise empty.
    std::string path;
    std::string host;
    unsigned short port = 0;

  private:
    std::string DescribeAbsence() const;
};

}  // namespace Brantel::Tool
