#pragma once

#include <libProtocolX/StorageClientX.h>

#include <string>

namespace Brantel::MovieDemo {

// Where a storage is: unix:PATH or tcp:HOST:PORT. A value.
struct ServerAddress {
    // Throws std::runtime_error that names the text.
    static ServerAddress Parse(const std::string& text);

    // Throws std::runtime_error that names the address.
    void Connect(ProtocolX::StorageClientX& client) const;

    std::string text;
    // Of a Unix-domain socket; otherwise empty.
    std::string path;
    std::string host;
    unsigned short port = 0;
};

}  // namespace Brantel::MovieDemo
