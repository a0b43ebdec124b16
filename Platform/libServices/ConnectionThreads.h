#pragma once

#include "ArrivalRoom.h"
#include "LimitCounts.h"
#include "OwnedDescriptor.h"
#include "ServiceListener.h"
#include "ServiceThread.h"
#include "SocketAddress.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace Brantel::Services {

// The connections of a listener, each served on a thread of its own.
class ConnectionThreads {
  public:
    // All are borrowed. `whenOneEnds` is called on a connection's thread that is about to end, when
    // its descriptor is free again.
    ConnectionThreads(const ServiceListenerOptions& options,
                      const ServiceListener::HandlerFactory& factory, SpinGovernor& governor,
                      std::function<void()> whenOneEnds);
    ConnectionThreads(const ConnectionThreads&) = delete;
    ConnectionThreads& operator=(const ConnectionThreads&) = delete;
    // CloseAndJoinAll has been called if there ever was a connection.
    ~ConnectionThreads() = default;

    // Serves the connection, or refuses it, which is counted and reported. One thread at a time.
    void Serve(OwnedDescriptor socket, const SocketAddress& address) noexcept;

    // What the program's onEvent throws is dropped.
    void Report(ServiceListenerEvent::Kind kind, const PeerAddress& peer,
                const std::string& text) const noexcept;

    // Joins the threads that have ended.
    void JoinEnded();

    // Closes every connection, those that send at the end of the stop grace, and waits until all
    // threads have ended. Serve is not called any more.
    void CloseAndJoinAll();

    ServiceListenerCounters Counters() const noexcept;

    // Which threads are the listener's own: those that serve, and those that adopted themselves.
    void AdoptThisThread() const noexcept;
    bool OwnsThisThread() const noexcept;

  private:
    struct Connection {
        explicit Connection(PeerAddress peer) : peer(std::move(peer)) {}

        const PeerAddress peer;
        // Ended by the thread that serves it; guarded by the mutex is only whether others may close
        // it.
        std::optional<FileDescriptorServiceConnection> stream;
        bool mayBeClosed = true;
        // Used by the thread that serves and joins.
        std::optional<ServiceThread> thread;
    };
    using Connections = std::list<Connection>;
    class End;

    // Of those that others may close. Called with the mutex held.
    template <class Action>
    void ForEachOpenLocked(const Action& action);
    void Start(Connections& one);
    void Run(Connections::iterator connection);
    void Handle(Connection& connection);
    void Finish(Connections::iterator connection) noexcept;
    // Counts and reports a connection that is closed unserved.
    void Refuse(const PeerAddress& peer, const std::string& reason) noexcept;
    void CountFailure(const PeerAddress& peer, const std::string& text) noexcept;
    void CountLoss(const PeerAddress& peer, const std::string& text) noexcept;

    // Constant after construction.
    const ServiceListenerOptions& options;
    const ServiceListener::HandlerFactory& factory;
    SpinGovernor& governor;
    const std::function<void()> whenOneEnds;
    // The thread's that calls Serve.
    std::uint64_t lastConnectionId = 0;
    // Synchronised by themselves.
    std::atomic<std::uint64_t> accepted{0};
    std::atomic<std::uint64_t> active{0};
    std::atomic<std::uint64_t> refused{0};
    std::atomic<std::uint64_t> lostConnections{0};
    std::atomic<std::uint64_t> failedHandlers{0};
    std::atomic<std::uint64_t> crowdedOut{0};
    LimitCounts counts;
    ArrivalRoom room;
    // Guards the lists and what is said to be guarded in their elements.
    std::mutex mutex;
    Connections running;
    std::condition_variable oneEnded;
    // Whose threads have nothing more to do but end.
    Connections ended;
};

}  // namespace Brantel::Services
