#include "ConnectionThreads.h"

#include "SocketDisconnected.h"
#include "SocketOptions.h"

#include <cxxabi.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <typeinfo>
#include <utility>

namespace Brantel::Services {

namespace {

thread_local const ConnectionThreads* ownerOfThisThread = nullptr;

void DescribeUnixPeer(int connection, PeerAddress& peer) {
    peer.text = SocketAddress::OfSocket(connection).Text();
    ucred process{};
    socklen_t size = sizeof(process);
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &process, &size) != 0) {
        peer.text += " unknown process";
        return;
    }
    peer.user = process.uid;
    peer.group = process.gid;
    peer.text += " process " + std::to_string(process.pid) + " user " + std::to_string(process.uid);
}

PeerAddress Describe(int connection, const SocketAddress& address, std::uint64_t connectionId) {
    PeerAddress peer;
    peer.connectionId = connectionId;
    if (address.Family() == AF_UNIX) {
        peer.kind = PeerAddress::Kind::Unix;
        DescribeUnixPeer(connection, peer);
    } else {
        peer.kind = PeerAddress::Kind::Tcp;
        peer.ipV4 = address.IpV4();
        peer.text = address.Text();
    }
    return peer;
}

void Prepare(int connection, PeerAddress::Kind kind) {
    if (kind == PeerAddress::Kind::Unix) {
        PrepareUnixSocket(connection);
    } else {
        PrepareTcpSocket(connection);
    }
}

// How the handler ended, from within a catch of everything; empty when it ends its thread
// (pthread_exit), which unwinds the stack like an exception but has no type and must go on.
std::string DescribeUnknown() {
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        return {};
    }
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type->name(), nullptr, nullptr, &status), &std::free);
    return std::string("Exception of type ") + (status == 0 ? name.get() : type->name());
}

}  // namespace

// Takes the connection out of service when the thread leaves it, also by pthread_exit, unless it
// has left it to a crowd.
class ConnectionThreads::End {
  public:
    End(ConnectionThreads& threads, Connections::iterator connection)
        : threads(threads), connection(connection) {}
    End(const End&) = delete;
    End& operator=(const End&) = delete;
    ~End() {
        if (!hasLeft) {
            threads.Finish(connection);
        }
    }

    void LeaveIt() { hasLeft = true; }

  private:
    ConnectionThreads& threads;
    const Connections::iterator connection;
    bool hasLeft = false;
};

ConnectionThreads::ConnectionThreads(const ServiceListenerOptions& options,
                                     const ServiceListener::HandlerFactory& factory,
                                     SpinGovernor& governor, std::function<void()> whenOneEnds)
    : options(options),
      factory(factory),
      governor(governor),
      whenOneEnds(std::move(whenOneEnds)),
      crowdRule{options.isQuick, options.crowd},
      room(options.bytesInFlight) {}

void ConnectionThreads::Start() {
    if (crowdRule.isQuick == nullptr || !crowds.empty()) {
        return;
    }
    const unsigned loops = std::max(1U, SpinGovernor::OnlineProcessors() / 2);
    std::vector<std::unique_ptr<CrowdLoop>> made;
    for (unsigned index = 0; index < loops; ++index) {
        made.push_back(std::make_unique<CrowdLoop>(
            CrowdLoop::Calls{[this] { AdoptThisThread(); },
                             [this](CrowdLoop& loop, void* owner) {
                                 ServeInCrowd(loop, *static_cast<Connection*>(owner));
                             },
                             [this] { return StartMissingThreads(); }}));
        made.back()->Start(options.stackSize);
    }
    const std::lock_guard guard(mutex);
    crowds = std::move(made);
    crowdsAreOpen = true;
}

void ConnectionThreads::Serve(OwnedDescriptor socket, const SocketAddress& address) noexcept {
    PeerAddress peer;
    // Outlives the refusal: whoever sees the connection's end finds it counted.
    Connections one;
    try {
        peer = Describe(socket.Get(), address, ++lastConnectionId);
        Prepare(socket.Get(), peer.kind);
        if (active >= options.maximumConnections) {
            ++crowdedOut;
            Refuse(peer, "Already serving " + std::to_string(options.maximumConnections) +
                             " connections, the limit");
            return;
        }
        one.emplace_back(peer, socket.Get());
        one.front().self = one.begin();
        one.front().stream.emplace(socket.Release(), options.messageLimit, governor);
        one.front().stream->SetLimits(options.limits, &room, &counts);
        one.front().stream->SetCrowdRule(&crowdRule);
        StartFirst(one);
    } catch (const std::exception& error) {
        Refuse(peer, error.what());
    }
}

void ConnectionThreads::StartFirst(Connections& one) {
    const auto connection = one.begin();
    const std::lock_guard guard(mutex);
    running.splice(running.end(), one);
    ++active;
    try {
        StartThreadLocked(connection);
    } catch (...) {
        --active;
        one.splice(one.end(), running, connection);
        throw;
    }
}

// Locked until the thread is known: whoever finds its connection ended joins it.
void ConnectionThreads::StartThreadLocked(Connections::iterator connection) {
    connection->thread.emplace_back(options.stackSize,
                                    "conn " + std::to_string(connection->peer.connectionId),
                                    [this, connection] { Run(connection); });
}

void ConnectionThreads::Run(Connections::iterator connection) {
    AdoptThisThread();
    End end(*this, connection);
    while (!connection->isOver && HandleAndReport(*connection)) {
        if (LeaveToCrowd(connection)) {
            end.LeaveIt();
            return;
        }
        connection->stream->SetCrowdRule(nullptr);
    }
}

bool ConnectionThreads::HandleAndReport(Connection& connection) {
    try {
        if (Handle(connection)) {
            return true;
        }
        // A handler may end quietly when its connection is lost.
        const std::string lost = connection.stream->WhyLost();
        const std::string refused = connection.stream->WhyRefused();
        if (!lost.empty()) {
            CountLoss(connection.peer, lost);
        } else if (!refused.empty()) {
            Report(ServiceListenerEvent::Kind::MessageRefused, connection.peer, refused);
        }
    } catch (const SocketDisconnected& error) {
        CountLoss(connection.peer, error.what());
    } catch (const std::exception& error) {
        CountFailure(connection.peer, error.what());
    } catch (...) {
        const std::string unknown = DescribeUnknown();
        if (unknown.empty()) {
            CountFailure(connection.peer, "The handler ended its thread");
            throw;
        }
        CountFailure(connection.peer, unknown);
    }
    return false;
}

bool ConnectionThreads::Handle(Connection& connection) {
    if (connection.handler == nullptr) {
        ++accepted;
        connection.handler = factory(*connection.stream, connection.peer);
    }
    if (connection.handler == nullptr) {
        Refuse(connection.peer, "There is no handler for it");
        return false;
    }
    connection.handler->Handle(*connection.stream);
    if (connection.stream->HasLeft()) {
        return true;
    }
    connection.handler.reset();
    return false;
}

// Locked, so that the loop starts no thread for it before this one has gone. Who leaves joins those
// that have left before, which have nothing more to do.
bool ConnectionThreads::LeaveToCrowd(Connections::iterator connection) {
    std::list<ServiceThread> joined;
    const std::lock_guard guard(mutex);
    joined.splice(joined.end(), endedThreads);
    CrowdLoop& loop = *crowds[connection->peer.connectionId % crowds.size()];
    ++inCrowd;
    if (!crowdsAreOpen || !loop.Watch(connection->socket, &*connection)) {
        --inCrowd;
        return false;
    }
    endedThreads.splice(endedThreads.end(), connection->thread);
    return true;
}

void ConnectionThreads::ServeInCrowd(CrowdLoop& loop, Connection& connection) {
    if (connection.stream->ReceiveInCrowd()) {
        connection.isOver = !HandleAndReport(connection);
        if (!connection.isOver && connection.stream->IsIdle()) {
            return;
        }
    }
    TakeFromCrowd(loop, connection);
}

void ConnectionThreads::TakeFromCrowd(CrowdLoop& loop, Connection& connection) {
    loop.LeaveAlone(connection.socket);
    connection.stream->ServeOnThread();
    --inCrowd;
    std::string reason;
    try {
        const std::lock_guard guard(mutex);
        StartThreadLocked(connection.self);
        return;
    } catch (const std::exception& error) {
        reason = error.what();
    }
    if (!missingIsReported.exchange(true)) {
        Report(ServiceListenerEvent::Kind::ThreadMissing, connection.peer, reason);
    }
    loop.AskAgain();
    // From now on it may be another loop that starts its thread.
    const std::lock_guard guard(mutex);
    connection.needsThread = true;
}

bool ConnectionThreads::StartMissingThreads() {
    const std::lock_guard guard(mutex);
    try {
        for (auto connection = running.begin(); connection != running.end(); ++connection) {
            if (connection->needsThread) {
                StartThreadLocked(connection);
                connection->needsThread = false;
            }
        }
    } catch (const std::exception&) {
        return true;
    }
    missingIsReported = false;
    return false;
}

// Ends what the loops had, which is closed already: its handlers learn it by their next Receive.
void ConnectionThreads::StopCrowds() {
    {
        const std::lock_guard guard(mutex);
        crowdsAreOpen = false;
    }
    for (const auto& crowd : crowds) {
        crowd->Stop();
    }
    for (;;) {
        auto connection = running.end();
        {
            const std::lock_guard guard(mutex);
            connection = std::find_if(running.begin(), running.end(),
                                      [](const Connection& one) { return one.thread.empty(); });
            if (connection == running.end()) {
                inCrowd = 0;
                return;
            }
        }
        connection->stream->ServeOnThread();
        if (!connection->isOver) {
            HandleAndReport(*connection);
        }
        Finish(connection);
    }
}

void ConnectionThreads::Finish(Connections::iterator connection) noexcept {
    connection->handler.reset();
    {
        const std::lock_guard guard(mutex);
        connection->mayBeClosed = false;
    }
    // A peer that sees the end of its connection may come back at once and finds its place free.
    --active;
    connection->stream.reset();
    {
        const std::lock_guard guard(mutex);
        ended.splice(ended.end(), running, connection);
        oneEnded.notify_all();
    }
    whenOneEnds();
}

void ConnectionThreads::CountFailure(const PeerAddress& peer, const std::string& text) noexcept {
    ++failedHandlers;
    Report(ServiceListenerEvent::Kind::HandlerFailed, peer, text);
}

void ConnectionThreads::CountLoss(const PeerAddress& peer, const std::string& text) noexcept {
    ++lostConnections;
    Report(ServiceListenerEvent::Kind::ConnectionLost, peer, text);
}

void ConnectionThreads::Refuse(const PeerAddress& peer, const std::string& reason) noexcept {
    ++refused;
    Report(ServiceListenerEvent::Kind::ConnectionRefused, peer, reason);
}

void ConnectionThreads::Report(ServiceListenerEvent::Kind kind, const PeerAddress& peer,
                               const std::string& text) const noexcept {
    if (!options.onEvent) {
        return;
    }
    try {
        options.onEvent(ServiceListenerEvent{kind, peer, text});
    } catch (...) {
        // There is nobody left to tell.
    }
}

void ConnectionThreads::JoinEnded() {
    Connections joined;
    std::list<ServiceThread> joinedThreads;
    {
        const std::lock_guard guard(mutex);
        joined.splice(joined.end(), ended);
        joinedThreads.splice(joinedThreads.end(), endedThreads);
    }
}

template <class Action>
void ConnectionThreads::ForEachOpenLocked(const Action& action) {
    for (Connection& connection : running) {
        if (connection.mayBeClosed) {
            action(*connection.stream);
        }
    }
}

void ConnectionThreads::CloseAndJoinAll() {
    if (options.stopGrace.count() > 0) {
        std::unique_lock lock(mutex);
        ForEachOpenLocked([](FileDescriptorServiceConnection& stream) { stream.EndReceiving(); });
        oneEnded.wait_for(lock, options.stopGrace, [this] { return running.empty(); });
    }
    {
        const std::lock_guard guard(mutex);
        ForEachOpenLocked([](FileDescriptorServiceConnection& stream) { stream.Close(); });
    }
    StopCrowds();
    for (;;) {
        ServiceThread* thread = nullptr;
        {
            const std::lock_guard guard(mutex);
            if (running.empty()) {
                break;
            }
            thread = &running.front().thread.front();
        }
        // At the thread's end its connection is among the ended ones.
        thread->Join();
    }
    JoinEnded();
}

ServiceListenerCounters ConnectionThreads::Counters() const noexcept {
    return {accepted,
            active,
            inCrowd,
            refused,
            lostConnections,
            failedHandlers,
            crowdedOut,
            counts.oversizedMessages,
            counts.refusedMessages,
            counts.slowMessages,
            counts.slowReceivers,
            counts.delayedMessages,
            room.Taken()};
}

void ConnectionThreads::AdoptThisThread() const noexcept {
    ownerOfThisThread = this;
}

bool ConnectionThreads::OwnsThisThread() const noexcept {
    return ownerOfThisThread == this;
}

}  // namespace Brantel::Services
