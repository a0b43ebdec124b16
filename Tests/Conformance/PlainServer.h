#pragma once

#include "Conformance/FaultMatrix.h"
#include "Support/SocketPair.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/TcpSocketConnection.h>
#include <libServices/UnixDomainConnection.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace BrantelStorageApi {

using Connection = Brantel::Services::FileDescriptorServiceConnection;

// A connection of a client of ours to a listening socket.
inline std::unique_ptr<Connection> ConnectTo(Transport transport, const std::string& path,
                                             unsigned short port) {
    using Tcp = Brantel::Services::TcpSocketConnection<Connection>;
    constexpr unsigned int timeoutMilliseconds = 60'000;
    if (transport == Transport::Unix) {
        return std::make_unique<Brantel::Services::UnixDomainConnection>(path);
    }
    return std::make_unique<Tcp>("127.0.0.1", port, timeoutMilliseconds);
}

// A listening socket without anything of ours behind it: what it answers, and whether, the test
// says.
class PlainServer {
  public:
    explicit PlainServer(Transport transport) : transport(transport) { Listen(); }

    std::unique_ptr<Connection> Connect() const { return ConnectTo(transport, path, port); }
    // The next connection that was made.
    Brantel::Tests::RawPeer Accept() const {
        Brantel::Tests::Descriptor accepted(::accept4(Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (transport == Transport::Tcp) {
            // Every write goes at once, in pieces when it was in pieces.
            const int on = 1;
            ::setsockopt(accepted.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        }
        return Brantel::Tests::RawPeer(std::move(accepted));
    }

    // Nobody listens any more; the address stays.
    void StopListening() {
        unixListener.Close();
        if (tcpListener) {
            tcpListener->Close();
        }
    }
    // Listens again, over TCP on another port.
    void Listen() {
        if (transport == Transport::Tcp) {
            tcpListener.emplace("127.0.0.1");
            port = tcpListener->Port();
            return;
        }
        ::unlink(path.c_str());
        unixListener = Brantel::Tests::Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        constexpr int queue = 16;
        if (::bind(unixListener.Get(), reinterpret_cast<const sockaddr*>(&address),
                   sizeof(address)) != 0 ||
            ::listen(unixListener.Get(), queue) != 0) {
            throw std::system_error(errno, std::system_category(), "listen on " + path);
        }
    }
    // Where it listens, or did, as a failed connect names it.
    std::string Address() const {
        return transport == Transport::Unix ? path : "127.0.0.1 port " + std::to_string(port);
    }

  private:
    int Get() const {
        return transport == Transport::Unix ? unixListener.Get() : tcpListener->Get();
    }

    const Transport transport;
    const Brantel::Tests::TemporaryFolder folder;
    const std::string path = folder.File("s");
    unsigned short port = 0;
    Brantel::Tests::Descriptor unixListener;
    std::optional<Brantel::Tests::PlainTcpListener> tcpListener;
};

// The bytes of the next message; false when the connection ends before they are all there.
inline bool ReadFrame(Brantel::Tests::RawPeer& peer, std::string& bytes) {
    constexpr unsigned more = 0x80;
    constexpr unsigned bitsPerByte = 7;
    std::size_t size = 0;
    for (unsigned shift = 0;; shift += bitsPerByte) {
        const std::string byte = peer.Read(1);
        if (byte.empty()) {
            return false;
        }
        const auto value = static_cast<unsigned char>(byte.front());
        size |= static_cast<std::size_t>(value % more) << shift;
        if (value < more) {
            break;
        }
    }
    bytes = peer.Read(size);
    return bytes.size() == size;
}

// Closes so that the other side gets a reset (over TCP; on a Unix-domain socket an end).
inline void Reset(Brantel::Tests::RawPeer& peer) {
    const linger now{1, 0};
    ::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    peer.Close();
}

}  // namespace BrantelStorageApi
