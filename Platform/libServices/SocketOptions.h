#pragma once

namespace Brantel::Services {

// What every connection of ours has set on its socket, on either end.

// The largest send buffer that the system grants everybody by default, in bytes (it doubles the
// value for its own bookkeeping). Large messages move up to twice as fast with it where the traffic
// stays on the machine; on a network the system's own tuning is better.
constexpr int localSendBufferSize = 212992;

// A TCP peer that has vanished is given up within vanishedSeconds: after keepAliveIdleSeconds of
// silence the system asks every keepAliveIntervalSeconds, and the first time that it would ask
// when the time-out, in milliseconds, is over, it gives up; without the time-out, after so many
// questions. Data that is not acknowledged, or not taken because the peer's buffers are full, waits
// no longer than the time-out. What is left to vanishedSeconds is for the system's timers, which
// are late by a part of the time that they measure.
constexpr int vanishedSeconds = 30;
constexpr unsigned int userTimeoutMilliseconds = 24'000;
constexpr int keepAliveIdleSeconds = 10;
constexpr int keepAliveIntervalSeconds = 5;
constexpr int keepAliveProbes = 3;

// For a connected TCP socket: no delay of small segments, keep-alive, the time-out above, and the
// send buffer when the peer is on this machine. Throws std::runtime_error naming the option.
void PrepareTcpSocket(int fd);

// For a Unix-domain stream socket: the send buffer. Throws std::runtime_error naming the option.
void PrepareUnixSocket(int fd);

// True for a TCP socket whose two ends are the same. The system makes such a connection when a
// program connects to a free local port and is given just this port as its own.
bool IsConnectedToItself(int fd) noexcept;

}  // namespace Brantel::Services
