#pragma once

#include "OwnedDescriptor.h"
#include "SocketAddress.h"

#include <memory>
#include <string>
#include <vector>

namespace Brantel::Services {

class UnixSocketFile;

// A socket that listens, non-blocking and close-on-exec; stops listening when destroyed. A
// Unix-domain socket removes its file then, unless another server has taken the name meanwhile.
class ListeningSocket {
  public:
    // So many connections may wait to be accepted (the system may hold it lower).
    static constexpr int backlog = 4096;

    // One socket for each address of the name: a numeric address; a name; or nothing, for every
    // IPv4 and IPv6 address of this machine. Port 0 takes a free port for each. Addresses that this
    // machine does not have are left out unless that leaves none. Throws std::runtime_error: "Could
    // not listen on 192.0.2.7 port 4711: Address already in use".
    static std::vector<ListeningSocket> OnTcp(const std::string& host, unsigned short port);

    // `mode` is the file's access mode, 0 to 0777, whatever the process's umask. See
    // UnixSocketFile.
    static ListeningSocket OnUnix(const std::string& path, unsigned int mode);

    // A socket that listens already, taken over also when this throws: a stream socket of IPv4,
    // IPv6 or the Unix domain, whose file, if it has one, is left when the socket ends. Throws
    // std::runtime_error: "Could not listen on descriptor 3: it is not a socket".
    static ListeningSocket OnDescriptor(int fd);

    ListeningSocket(ListeningSocket&&) noexcept;
    ListeningSocket& operator=(ListeningSocket&&) noexcept;
    ~ListeningSocket();

    int Get() const noexcept { return socket.Get(); }
    // With the port that was really taken.
    const SocketAddress& Address() const noexcept { return address; }

  private:
    ListeningSocket(OwnedDescriptor socket, const SocketAddress& address,
                    std::unique_ptr<UnixSocketFile> file);

    // The file is removed while the socket still listens, so that nobody finds it stale.
    OwnedDescriptor socket;
    SocketAddress address;
    std::unique_ptr<UnixSocketFile> file;
};

}  // namespace Brantel::Services
