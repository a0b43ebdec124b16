#pragma once

#include "AccessRules.h"
#include "ClientSession.h"
#include "RefusalCounters.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "ServerOptions.h"
#include "ServerStatus.h"

#include <libEngine/IEngine.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/IServiceHandler.h>
#include <libServices/PeerAddress.h>
#include <libServices/ServiceListener.h>
#include <libTracks/Storage.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Brantel::Server {

// The tracks on one engine, served to clients: one storage, and for each connection a service of
// its own, so that connections run in parallel and whatever one of them opened ends with it.
class StorageServer {
  public:
    static constexpr std::chrono::milliseconds stopGrace{2000};

    // Opens what the engine (borrowed) holds and takes the addresses of the options, at which
    // clients then wait to be served. The log, and the observers, which are told of every call, are
    // borrowed. Throws std::runtime_error that names what could not be done.
    StorageServer(Engine::IEngine& engine, const ServerOptions& options, ServerLog& log,
                  ClientSession::Observers observers = {});
    // Stops.
    ~StorageServer();
    StorageServer(const StorageServer&) = delete;
    StorageServer& operator=(const StorageServer&) = delete;

    // Where it listens, in the form of the options: "unix:/run/storage.sock", "tcp:127.0.0.1:4711",
    // with the ports really taken. An option whose host has several addresses gives as many.
    const std::vector<std::string>& Addresses() const { return addresses; }

    // Asks the storage for what it must know at once, to see that it answers. Throws what it
    // throws.
    void AskStorage();

    // What there is and what goes on, until Stop and after it.
    ServedStatus GetStatus() const;

    // Begins to serve. Throws std::runtime_error.
    void Start();

    // How often each limit held since the start, by the name of its setting (ServerLimits). Under
    // bytes-in-flight those that had to wait, under max-elements those that nest too deep, too. Any
    // thread.
    struct Refused {
        const char* limit;
        std::uint64_t count;
    };
    std::vector<Refused> RefusedByLimit() const;

    // Connections and what they have in flight. Any thread.
    Services::ServiceListenerCounters Counters() const { return listener.Counters(); }

    // Who may do what, and what one client can take, on connections that are accepted from now on;
    // of the limits those that no listener needs: max-workers and max-ids. Any thread.
    void SetAccess(const AccessRules& rules);
    void SetLimits(const ServerLimits& limits);

    // Ends every call that waits, accepts no more, lets the calls that run answer for as long as
    // stopGrace, closes all connections and waits until the last call has ended. Not on a thread
    // that serves a connection. A second call does nothing.
    void Stop();

  private:
    static std::unique_ptr<Tracks::Storage> OpenStorage(Engine::IEngine& engine,
                                                        const ServerOptions& options,
                                                        ServerLog& log);
    static Services::ServiceListenerOptions MakeListenerOptions(const ServerOptions& options,
                                                                ServerLog& log);
    std::unique_ptr<Services::IServiceHandler> MakeService(
        Services::FileDescriptorServiceConnection& connection, const Services::PeerAddress& peer);
    std::shared_ptr<ClientSession> MakeSession(const Services::PeerAddress& peer);
    void Listen(const ListenAddress& address, const ServerOptions& options);
    void ListenPassed(int socket, const ServerOptions& options);
    void NoteAddresses(bool isUnix, const ServerOptions& options);

    // Constant after construction. The connections' objects work on them, and on the storage and
    // the counters, which are synchronised by themselves: all outlive the listener.
    const ClientSession::Observers observers;
    RefusalCounters refusals;
    const std::unique_ptr<Tracks::Storage> storage;
    // Guards what follows.
    mutable std::mutex reloadMutex;
    AccessRules access;
    ServerLimits limits;
    Services::ServiceListener listener;
    // Constant after construction.
    std::vector<std::string> addresses;
};

}  // namespace Brantel::Server
