#pragma once

#include <string>

namespace Brantel::Services {

// Connects to the host (a name or a numeric IPv4 or IPv6 address) and returns the connected socket,
// blocking, close-on-exec, which the caller owns. Every address of the name is tried in turn.
//
// `timeoutMilliseconds` bounds the whole connect; each address gets an equal share of what is left,
// so that one that does not answer leaves time for the next. The look-up of the name counts, but
// only the name service ends it. 0 waits as long as the system does (about two minutes for each
// address).
//
// A connection to itself, which the system makes now and then on a free local port, counts as
// refused. Signals do not end the wait. Throws std::runtime_error naming the host, the port and
// what the system said: "Could not connect to 192.0.2.7 port 4711: Connection refused"; of a name
// with several addresses, for each of them. Any thread.
int ConnectTcp(const std::string& host, unsigned short port, unsigned int timeoutMilliseconds);

}  // namespace Brantel::Services
