#pragma once

#include "ArrivalRoom.h"
#include "CrowdLoop.h"
#include "CrowdRule.h"
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
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Services {

// The connections of a listener, each served on a thread of its own, or in a crowd: a thread whose
// connection may leave it hands it to a loop and ends; the loop serves what is quick, and starts a
// thread anew for whatever is not, or when the crowd has gone.
class ConnectionThreads {
  public:
    // All are borrowed. `whenOneEnds` is called on a connection's thread that is about to end, when
    // its descriptor is free again.
    ConnectionThreads(const ServiceListenerOptions& options,
                      const ServiceListener::HandlerFactory& factory, SpinGovernor& governor,
                      std::function<void()> whenOneEnds);
    ConnectionThreads(const ConnectionThreads&) = delete;
    ConnectionThreads& operator=(const ConnectionThreads&) = delete;
    // CloseAndJoinAll has been called if Start succeeded.
    ~ConnectionThreads() = default;

    // Before the first connection. Throws std::runtime_error when the system has no descriptors or
    // threads for the crowds.
    void Start();

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
        Connection(PeerAddress peer, int socket) : peer(std::move(peer)), socket(socket) {}

        const PeerAddress peer;
        const int socket;  // the stream's
        std::list<Connection>::iterator self;
        // Ended by the thread that serves it; guarded by the mutex is only whether others may close
        // it.
        std::optional<FileDescriptorServiceConnection> stream;
        bool mayBeClosed = true;
        // Of whoever serves: the connection's thread, or the loop that has it.
        std::unique_ptr<IServiceHandler> handler;
        bool isOver = false;  // nothing is left to do but to end it
        // Guarded by the mutex: the thread that serves, none in a crowd; and whether it is missing.
        std::list<ServiceThread> thread;
        bool needsThread = false;
    };
    using Connections = std::list<Connection>;
    class End;

    // Of those that others may close. Called with the mutex held.
    template <class Action>
    void ForEachOpenLocked(const Action& action);
    void StartFirst(Connections& one);
    void StartThreadLocked(Connections::iterator connection);
    void Run(Connections::iterator connection);
    // False: it is over.
    bool HandleAndReport(Connection& connection);
    bool Handle(Connection& connection);
    bool LeaveToCrowd(Connections::iterator connection);
    void ServeInCrowd(CrowdLoop& loop, Connection& connection);
    void TakeFromCrowd(CrowdLoop& loop, Connection& connection);
    bool StartMissingThreads();
    void StopCrowds();
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
    const CrowdRule crowdRule;
    // Constant after Start.
    std::vector<std::unique_ptr<CrowdLoop>> crowds;
    // The thread's that calls Serve.
    std::uint64_t lastConnectionId = 0;
    // Synchronised by themselves.
    std::atomic<std::uint64_t> accepted{0};
    std::atomic<std::uint64_t> active{0};
    std::atomic<std::uint64_t> inCrowd{0};
    std::atomic<std::uint64_t> refused{0};
    std::atomic<std::uint64_t> lostConnections{0};
    std::atomic<std::uint64_t> failedHandlers{0};
    std::atomic<std::uint64_t> crowdedOut{0};
    std::atomic<bool> missingIsReported{false};
    LimitCounts counts;
    ArrivalRoom room;
    // Guards the lists and what is said to be guarded in their elements.
    std::mutex mutex;
    Connections running;
    std::condition_variable oneEnded;
    // Whose threads have nothing more to do but end.
    Connections ended;
    std::list<ServiceThread> endedThreads;
    bool crowdsAreOpen = false;
};

}  // namespace Brantel::Services
