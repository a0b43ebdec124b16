#pragma once

#include <libServices/FileDescriptorServiceConnection.h>

#include <cstddef>
#include <string>

namespace Brantel::Services {

// A connection to a Unix-domain stream socket, made by its constructor.
class UnixDomainConnection : public FileDescriptorServiceConnection {
  public:
    // Connects to the socket at `path`, 1 to 107 bytes without a zero byte (abstract names are not
    // supported). Waits while the queue of the listening socket is full; signals do not end the
    // wait. Throws std::runtime_error naming the path and what the system said: "Could not connect
    // to /run/storage.sock: Connection refused". messageLimit: see the base.
    explicit UnixDomainConnection(const std::string& path,
                                  std::size_t messageLimit = defaultMessageLimit);
};

}  // namespace Brantel::Services
