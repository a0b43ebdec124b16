#include "UnixDomainConnection.h"

#include "OwnedDescriptor.h"
#include "SocketAddress.h"
#include "SocketOptions.h"
#include "SystemText.h"

#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>

namespace Brantel::Services {

namespace {

int ConnectUnix(const std::string& path) {
    const SocketAddress address = SocketAddress::OfUnixPath(path);
    OwnedDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    int error = socket.IsOpen() ? 0 : errno;
    if (error == 0) {
        // An interrupted connect of a Unix-domain socket has changed nothing and starts anew.
        do {
            error = connect(socket.Get(), address.Get(), address.Size()) == 0 ? 0 : errno;
        } while (error == EINTR);
    }
    if (error != 0) {
        throw std::runtime_error("Could not connect to " + path + ": " + SystemText(error));
    }
    PrepareUnixSocket(socket.Get());
    return socket.Release();
}

}  // namespace

UnixDomainConnection::UnixDomainConnection(const std::string& path, std::size_t messageLimit)
    : FileDescriptorServiceConnection(ConnectUnix(path), messageLimit) {}

}  // namespace Brantel::Services
