#pragma once

#include <libServices/TcpConnect.h>

#include <string>
#include <utility>

namespace Brantel::Services {

// A connection over TCP, made by its constructor. `Base` sends and receives on the connected
// socket: it is constructible from the descriptor (and further arguments), which it owns from the
// first moment of its construction.
//
// A peer that is silent to keep-alive, acknowledges nothing or takes nothing of what is sent for
// about 25 s (vanished, but also stopped with its buffers full) is given up as lost.
template <typename Base>
class TcpSocketConnection : public Base {
  public:
    // Connects to the host (a name or a numeric address, IPv4 or IPv6) and port; the timeout is in
    // milliseconds for the whole connect, 0 waits as long as the system does. Further arguments go
    // to the base behind the descriptor. Throws std::runtime_error naming host, port and reason;
    // see ConnectTcp for the details.
    template <typename... BaseArguments>
    TcpSocketConnection(const std::string& host, unsigned short port, unsigned int timeout,
                        BaseArguments&&... baseArguments)
        : Base(ConnectTcp(host, port, timeout), std::forward<BaseArguments>(baseArguments)...) {}
};

}  // namespace Brantel::Services
