#pragma once

#include "Support/RawClient.h"
#include "Support/ServerProcess.h"
#include "Support/SocketPair.h"
#include "Support/TemporaryFolder.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <thread>

namespace Brantel::Tests {

// What becomes of a piece of bytes that passes a proxy.
enum class ProxyFault : std::uint8_t {
    Passed,
    Split,        // in two pieces
    ByteByByte,   // as far as it has up to 64 bytes
    Delayed,      // for less than a millisecond
    Stalled,      // for some milliseconds
    Swallowed,    // and then the connection ends
    Truncated,    // and then the connection ends
    Reset,        // some of it passes, then the connection is reset on both sides
    Doubled,      // everything before it is sent again over a second connection
    DoubledLate,  // the same with it, after the connection has ended
    // Lies, which whoever checks the answers must notice.
    AnswerRepeated,
    AnswerStale,   // the one before it instead
    AppendForged,  // it goes nowhere, and is answered
    Count
};

// How often each befalls a piece: one in so many; 0: never.
using ProxyRates = std::array<unsigned, static_cast<std::size_t>(ProxyFault::Count)>;

const char* NameOf(ProxyFault fault);
bool IsLie(ProxyFault fault);

// Stands between one client and a server, for one connection after the other, and does to the bytes
// what its seed says. Threads: counts may be read by any.
class FaultProxy {
  public:
    // Listens for this transport and connects to the server, which is borrowed, over the same.
    FaultProxy(const ServerProcess& server, Transport transport, std::uint64_t seed,
               const ProxyRates& rates);
    // The client must have gone.
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    // Where the client connects to: the path, or the port of 127.0.0.1.
    std::string Path() const { return folder.File("proxy"); }
    unsigned short Port() const { return port; }
    Transport GetTransport() const { return transport; }

    std::uint64_t CountOf(ProxyFault fault) const {
        return counts.at(static_cast<std::size_t>(fault));
    }

  private:
    // What follows a piece.
    enum class After { GoOn, End, Reset };

    void Run();
    void Relay(RawPeer& client);
    After Pass(RawPeer& from, RawPeer& to, bool isRequest);
    After Do(ProxyFault fault, const std::string& piece, RawPeer& from, RawPeer& to);
    After Lie(ProxyFault fault, const std::string& piece, RawPeer& from, RawPeer& to);
    ProxyFault Draw(const std::string& piece, bool isRequest);
    bool CanBefall(ProxyFault fault, const std::string& piece, bool isRequest) const;
    void SendAgain(const std::string& requests) const;
    bool AwaitClient() const;
    std::size_t Below(std::size_t end) { return random() % end; }

    const ServerProcess& server;
    const Transport transport;
    const ProxyRates rates;
    const TemporaryFolder folder;
    unsigned short port = 0;
    Descriptor listener;
    Descriptor stop;  // readable when the proxy ends
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(ProxyFault::Count)> counts{};
    // Of the thread.
    std::mt19937_64 random;
    std::string sent;        // by the client on this connection
    bool isKept = true;      // `sent` is all of it, which it no longer is when that is much
    std::string lastAnswer;  // the last piece that went to the client
    std::thread thread;
};

}  // namespace Brantel::Tests
