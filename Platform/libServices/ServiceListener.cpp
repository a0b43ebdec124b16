#include "ServiceListener.h"

#include "AcceptLoop.h"
#include "ConnectionThreads.h"
#include "ListeningSocket.h"

#include <iterator>
#include <stdexcept>
#include <utility>

namespace Brantel::Services {

namespace {

// One handler for all connections, which somebody else owns.
class SharedHandler : public IServiceHandler {
  public:
    explicit SharedHandler(IServiceHandler& handler) : handler(handler) {}
    void Handle(IServiceConnection& connection) override { handler.Handle(connection); }

  private:
    IServiceHandler& handler;
};

ServiceListener::HandlerFactory Sharing(IServiceHandler& handler) {
    return [&handler](FileDescriptorServiceConnection&, const PeerAddress&) {
        return std::make_unique<SharedHandler>(handler);
    };
}

void CheckRange(const std::string& what, std::uint64_t value, std::uint64_t lowest,
                std::uint64_t highest) {
    if (value < lowest || value > highest) {
        throw std::runtime_error(what + " of " + std::to_string(value) + " is outside of " +
                                 std::to_string(lowest) + " to " + std::to_string(highest));
    }
}

ServiceListenerOptions Checked(ServiceListenerOptions options) {
    constexpr std::uint64_t kibi = 1024;
    constexpr std::uint64_t hour = 3'600'000;
    CheckRange("Message limit", options.messageLimit, 1,
               FileDescriptorServiceConnection::highestMessageLimit);
    CheckRange("Maximum number of connections", options.maximumConnections, 1, UINT32_MAX);
    CheckRange("Stack size", options.stackSize, 256 * kibi, 1024 * kibi);
    CheckRange("Number of elements", options.limits.elements, ConnectionLimits::lowestElements,
               UINT64_MAX);
    CheckRange("Depth", static_cast<std::uint64_t>(options.limits.depth), 1,
               ConnectionLimits::highestDepth);
    CheckRange("Rate", options.limits.bytesPerSecond, 0, std::uint64_t{1} << 40U);
    CheckRange("Grace", static_cast<std::uint64_t>(options.limits.grace.count()), 1, hour);
    CheckRange("Number of bytes in flight", options.bytesInFlight, options.messageLimit,
               UINT64_MAX);
    CheckRange("Stop grace", static_cast<std::uint64_t>(options.stopGrace.count()), 0, hour);
    CheckRange("Accept pause", static_cast<std::uint64_t>(options.acceptPause.count()), 1, hour);
    return options;
}

}  // namespace

ServiceListener::ServiceListener(HandlerFactory handlerFactory, ServiceListenerOptions givenOptions)
    : options(Checked(std::move(givenOptions))),
      factory(std::move(handlerFactory)),
      governor(options.spinBudget),
      acceptLoop(std::make_unique<AcceptLoop>()),
      connections(std::make_unique<ConnectionThreads>(options, factory, governor,
                                                      [this] { acceptLoop->Wake(); })) {
    if (!factory) {
        throw std::runtime_error("The listener has no handler factory");
    }
}

ServiceListener::ServiceListener(IServiceHandler& handler, ServiceListenerOptions options)
    : ServiceListener(Sharing(handler), std::move(options)) {}

ServiceListener::~ServiceListener() {  // NOLINT(bugprone-exception-escape): see the header
    Stop();
}

unsigned short ServiceListener::ListenTcp(const std::string& host, unsigned short port) {
    const std::lock_guard guard(mutex);
    CheckPreparing();
    std::vector<ListeningSocket> added = ListeningSocket::OnTcp(host, port);
    const unsigned short taken = added.front().Address().Port();
    Add(std::move(added));
    return taken;
}

void ServiceListener::ListenUnix(const std::string& path, unsigned int mode) {
    const std::lock_guard guard(mutex);
    CheckPreparing();
    std::vector<ListeningSocket> added;
    added.push_back(ListeningSocket::OnUnix(path, mode));
    Add(std::move(added));
}

void ServiceListener::ListenDescriptor(int fd) {
    std::vector<ListeningSocket> added;
    added.push_back(ListeningSocket::OnDescriptor(fd));
    const std::lock_guard guard(mutex);
    CheckPreparing();
    Add(std::move(added));
}

void ServiceListener::CheckPreparing() const {
    if (state != State::Preparing) {
        throw std::runtime_error("The listener has already been started");
    }
}

void ServiceListener::Add(std::vector<ListeningSocket> added) {
    for (const ListeningSocket& socket : added) {
        addresses.push_back(socket.Address().Text());
    }
    sockets.insert(sockets.end(), std::make_move_iterator(added.begin()),
                   std::make_move_iterator(added.end()));
}

std::vector<std::string> ServiceListener::Addresses() const {
    const std::lock_guard guard(mutex);
    return addresses;
}

void ServiceListener::Start() {
    const std::lock_guard guard(mutex);
    CheckPreparing();
    if (sockets.empty()) {
        throw std::runtime_error("The listener has no address to listen on");
    }
    connections->Start();
    acceptLoop->Start(sockets, *connections, options.stackSize, options.acceptPause);
    state = State::Running;
}

void ServiceListener::Stop() {
    if (connections->OwnsThisThread()) {
        throw std::runtime_error("A listener can't be stopped by one of its own threads");
    }
    const std::lock_guard stopGuard(stopMutex);
    {
        const std::lock_guard guard(mutex);
        state = State::Stopped;
        addresses.clear();
    }
    // Nothing but a Stop touches the rest from now on.
    acceptLoop->Stop();
    sockets.clear();
    connections->CloseAndJoinAll();
}

ServiceListenerCounters ServiceListener::Counters() const {
    return connections->Counters();
}

}  // namespace Brantel::Services
