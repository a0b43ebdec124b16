#pragma once

#include <libServices/ConnectionLimits.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/IServiceHandler.h>
#include <libServices/PeerAddress.h>
#include <libServices/SpinGovernor.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Brantel::Services {

class AcceptLoop;
class ConnectionThreads;
class ListeningSocket;

// Something that a program may want to log or count.
struct ServiceListenerEvent {
    // What happened.
    enum class Kind {
        ConnectionLost,     // Handle ended with SocketDisconnected, or because of one
        HandlerFailed,      // the factory or Handle threw anything else
        ConnectionRefused,  // accepted and closed at once: too many, no thread, no handler
        MessageRefused,     // Handle ended after a message that is not a valid one
        AcceptPaused,       // the system accepts no connection now; said once until it does again
        ThreadMissing       // no thread can be started for a connection of a crowd now; it waits
    };

    // What happened this time.
    Kind kind = Kind::ConnectionLost;
    // Whose connection; the default (connection id 0) with AcceptPaused.
    PeerAddress peer;
    // What the exception or the system said.
    std::string text;
};

// What a listener is made with; its constructor refuses numbers out of their ranges.
struct ServiceListenerOptions {
    // The largest message in bytes, either way; see FileDescriptorServiceConnection.
    std::size_t messageLimit = FileDescriptorServiceConnection::defaultMessageLimit;
    // At most so many connections are served at once, at least 1; one more is closed at once. Each
    // takes a thread, a descriptor and about 50 KiB of memory beside what its handler takes.
    std::size_t maximumConnections = 10'000;
    // What else each of them may take.
    ConnectionLimits limits;
    // Bytes of messages of more than 64 KiB that arrive and are served at once, over all
    // connections, at least messageLimit; what does not fit waits. Who has room that others wait
    // for must send faster than the limits say: a tenth of it in each fifth of the grace.
    std::uint64_t bytesInFlight = std::numeric_limits<std::uint64_t>::max();
    // The stack of each connection's thread in bytes, 256 KiB to 1 MiB; memory is taken as it is
    // used.
    std::size_t stackSize = std::size_t{512} * 1024;
    // The longest time that a connection polls for the next message before its thread sleeps; 0:
    // never.
    std::chrono::nanoseconds spinBudget = SpinGovernor::defaultBudget;
    // Whether a whole message is served in a moment, with nothing to wait for, and has an answer of
    // less than 16 KiB. Where there is such a rule a connection that asks for nothing else for a
    // while is served without a thread of its own while there is a crowd: one thread serves many of
    // them, by calls of Handle that end when there is nothing to be received (Receive returns
    // false). The handler stays the same, and so does what is promised of it. Called by several
    // threads at once. Null: each connection keeps its thread.
    bool (*isQuick)(const unsigned char* message, std::size_t size) = nullptr;
    // It is a crowd while more than so many connections are active within some milliseconds.
    std::uint32_t crowd = 8 * SpinGovernor::OnlineProcessors();
    // After the system has failed to accept (no descriptors, no memory) the next attempt is made
    // when a connection has ended, or after this time, 1 ms to 1 hour.
    std::chrono::milliseconds acceptPause{100};
    // So long may handlers that work when Stop is called go on sending, up to 1 hour; 0: they can
    // send nothing more.
    std::chrono::milliseconds stopGrace{0};
    // Called on the thread that the event happened on, several at once; what it throws is dropped.
    // May be empty.
    std::function<void(const ServiceListenerEvent&)> onEvent;
};

// How many since the start; `active`, `inCrowd` and `bytesInFlight` alone go down again.
struct ServiceListenerCounters {
    std::uint64_t accepted = 0;         // given to a thread
    std::uint64_t active = 0;           // now being served
    std::uint64_t inCrowd = 0;          // of these, now without a thread of their own
    std::uint64_t refused = 0;          // closed unserved
    std::uint64_t lostConnections = 0;  // Handle ended with SocketDisconnected, or because of one
    std::uint64_t failedHandlers = 0;   // the factory or Handle threw anything else
    // What the limits refused or held up.
    std::uint64_t crowdedOut = 0;         // connections over maximumConnections; refused, too
    std::uint64_t oversizedMessages = 0;  // announced over messageLimit; the connection is lost
    std::uint64_t refusedMessages = 0;    // too many elements, or nested too deep
    std::uint64_t slowMessages = 0;       // connections lost because a message came too slowly
    std::uint64_t slowReceivers = 0;      // connections lost because a message was taken too slowly
    std::uint64_t delayedMessages = 0;    // had to wait for room
    std::uint64_t bytesInFlight = 0;      // that large messages have taken now
};

// Accepts connections on any number of TCP and Unix-domain addresses and serves each on a thread of
// its own, or many on one (see isQuick): makes a handler for it, runs Handle, destroys the handler,
// then the connection, however Handle ends. No exception of a handler ends the process. No signal
// handler of the program runs on the listener's threads. A TCP client that vanishes, or takes
// nothing of its answer for about 25 s, is a lost connection.
//
// The program calls ListenTcp and ListenUnix, then Start, then Stop or the destructor; all of them
// may be called by any thread. Connections that arrive between Listen... and Start wait.
class ServiceListener {
  public:
    // Makes the handler of one connection. Called on the connection's thread, several at once. The
    // connection is borrowed and outlives the handler. Without a handler the connection is refused.
    using HandlerFactory = std::function<std::unique_ptr<IServiceHandler>(
        FileDescriptorServiceConnection&, const PeerAddress&)>;

    // Throws std::runtime_error when an option is out of its range.
    explicit ServiceListener(HandlerFactory factory, ServiceListenerOptions options = {});

    // Serves every connection with the one handler, which is borrowed, outlives the listener and
    // takes calls of Handle from several threads at once.
    explicit ServiceListener(IServiceHandler& handler, ServiceListenerOptions options = {});

    ServiceListener(const ServiceListener&) = delete;
    ServiceListener& operator=(const ServiceListener&) = delete;

    // Stops. Destroyed by one of its own threads, which can't wait for their own end, it ends the
    // process.
    ~ServiceListener();  // NOLINT(bugprone-exception-escape): the exception of Stop ends the process

    // Listens on every address of the host: a numeric IPv4 or IPv6 address, a name, or nothing for
    // every address of this machine. Addresses that this machine does not have are left out unless
    // that leaves none. Port 0 takes a free port for each address. Returns the port of the first.
    // Throws std::runtime_error: "Could not listen on 192.0.2.7 port 4711: Address already in use",
    // or after Start.
    unsigned short ListenTcp(const std::string& host, unsigned short port);

    // Listens on a Unix-domain socket of 1 to 107 bytes; mode: the file's access mode, 0 to 0777,
    // whatever the umask (connecting takes the right to write). A socket file on which nobody
    // answers is replaced; the file is removed by Stop. Throws std::runtime_error naming the path,
    // also when a server answers there, when the file is no socket, or after Start.
    void ListenUnix(const std::string& path, unsigned int mode = 0660);

    // Listens on a stream socket that listens already, as a service manager passes them, and takes
    // it over, also when this throws. The file of a Unix-domain socket stays after Stop: it belongs
    // to whoever made it. Throws std::runtime_error when the descriptor is no such socket, or after
    // Start.
    void ListenDescriptor(int fd);

    // Where it listens: "127.0.0.1:4711", "[::1]:4711", "/run/storage.sock", with the ports really
    // taken; empty after Stop.
    std::vector<std::string> Addresses() const;

    // Starts to serve. Throws std::runtime_error when no thread can be started, without an address
    // to listen on, and when called twice or after Stop.
    void Start();

    // Stops accepting and removes the socket files. Nothing more is received, so that a handler
    // that waits for its peer ends; one that works can send its answer, for as long as the stop
    // grace allows. Then closes what is left, and waits for the end of every handler and thread.
    // What else a handler may wait for must be ended by its owner. Later calls do nothing; calls at
    // the same time return together. Throws std::runtime_error on one of the listener's own threads
    // (a handler's, or one that runs onEvent).
    void Stop();

    // A snapshot; each number is right by itself.
    ServiceListenerCounters Counters() const;

  private:
    enum class State { Preparing, Running, Stopped };

    void Add(std::vector<ListeningSocket> more);
    void CheckPreparing() const;

    // Constant after construction.
    const ServiceListenerOptions options;
    const HandlerFactory factory;
    // Synchronised by themselves.
    SpinGovernor governor;
    const std::unique_ptr<AcceptLoop> acceptLoop;
    const std::unique_ptr<ConnectionThreads> connections;
    // Held through the whole of Stop, while handlers end; they may ask for addresses and counters.
    std::mutex stopMutex;
    // Guards what follows.
    mutable std::mutex mutex;
    State state = State::Preparing;
    std::vector<ListeningSocket> sockets;
    std::vector<std::string> addresses;
};

}  // namespace Brantel::Services
