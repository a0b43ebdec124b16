#pragma once

#include "Bench/Transport.h"

#include <sys/types.h>

#include <string>

namespace Brantel::Bench {

// A connected socket with the options that a connection of ours has.
int ConnectSocket(const std::string& unixPath);
int ConnectSocket(int loopbackPort);
void SetSocketOptions(int fd);

// A socket that listens there; a free port of 127.0.0.1.
int ListenUnix(const std::string& path);
int ListenTcp(int& port);

// A child process, kept on one processor, that serves the bare exchange and the protocol (a Service
// over the keeping storage for each connection), both on a Unix socket and on a loopback TCP port.
// Each connection has a heap scattered in another way.
// Ends with this object, or with the parent.
class BenchServer {
  public:
    static constexpr int anyProcessor = -1;

    // `pollMicroseconds`: the protocol's bounded poll; 0 turns it off. Must be made before the
    // process starts threads.
    BenchServer(int processor, int pollMicroseconds);
    ~BenchServer();
    BenchServer(const BenchServer&) = delete;
    BenchServer& operator=(const BenchServer&) = delete;

    int ConnectBare(Transport transport) const;
    int ConnectProtocol(Transport transport) const;
    pid_t Pid() const { return child; }

  private:
    std::string folder;
    int barePort = 0;
    int protocolPort = 0;
    pid_t child = -1;
};

// Keeps the calling thread on one processor; anyProcessor lets it go everywhere.
void KeepOnProcessor(int processor);

}  // namespace Brantel::Bench
