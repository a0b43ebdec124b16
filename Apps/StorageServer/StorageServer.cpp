#include "StorageServer.h"

#include "ClientHandler.h"
#include "GuardedReader.h"
#include "GuardedStorage.h"
#include "GuardedWriter.h"
#include "QuickRequest.h"

#include <libTracks/ClientConnection.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace Brantel::Server {

namespace {

Tracks::StorageOptions MakeStorageOptions(const ServerOptions& options, ServerLog& log) {
    Tracks::StorageOptions result;
    result.durability = options.durability;
    result.retention = options.retention;
    result.log = [&log](const std::string& text) { log.Say(LogLevel::Warning, text); };
    return result;
}

// Of an address as a listener gives it.
bool IsLoopback(const std::string& address) {
    return address.starts_with("127.") || address.starts_with("[::1]:");
}

}  // namespace

StorageServer::StorageServer(Engine::IEngine& engine, const ServerOptions& options, ServerLog& log,
                             ClientSession::Observers observers)
    : observers(std::move(observers)),
      storage(OpenStorage(engine, options, log)),
      access(options.access),
      limits(options.limits),
      listener([this](Services::FileDescriptorServiceConnection& connection,
                      const Services::PeerAddress& peer) { return MakeService(connection, peer); },
               MakeListenerOptions(options, log)) {
    for (const int socket : options.passedSockets) {
        ListenPassed(socket, options);
    }
    for (const ListenAddress& address : options.listen) {
        Listen(address, options);
    }
}

StorageServer::~StorageServer() {
    Stop();
}

std::unique_ptr<Tracks::Storage> StorageServer::OpenStorage(Engine::IEngine& engine,
                                                            const ServerOptions& options,
                                                            ServerLog& log) {
    try {
        return std::make_unique<Tracks::Storage>(engine, MakeStorageOptions(options, log));
    } catch (const std::runtime_error& error) {
        if (options.dataFolder.empty()) {
            throw;
        }
        throw std::runtime_error(
            std::string(error.what()) + "; nothing was changed: " + "\"brantel-storaged check " +
            options.dataFolder + "\" says what is damaged, and recover copies what is whole");
    }
}

Services::ServiceListenerOptions StorageServer::MakeListenerOptions(const ServerOptions& options,
                                                                    ServerLog& log) {
    Services::ServiceListenerOptions result;
    const ServerLimits& limits = options.limits;
    result.messageLimit = limits.messageBytes;
    result.maximumConnections = limits.connections;
    result.limits.elements = limits.elements;
    result.limits.depth = static_cast<int>(limits.depth);
    result.limits.bytesPerSecond = limits.transferRate;
    result.limits.grace = std::chrono::milliseconds(limits.transferGraceMilliseconds);
    result.bytesInFlight = limits.bytesInFlight;
    result.stopGrace = StorageServer::stopGrace;
    result.isQuick = IsQuickRequest;
    result.onEvent = [&log](const Services::ServiceListenerEvent& event) {
        log.OnConnection(event);
    };
    return result;
}

std::unique_ptr<Services::IServiceHandler> StorageServer::MakeService(
    Services::FileDescriptorServiceConnection& connection, const Services::PeerAddress& peer) {
    Tracks::ClientConnection client;
    client.id = static_cast<std::int64_t>(peer.connectionId);
    client.clientIpV4Address = peer.ipV4;
    client.isGone = [&connection] { return connection.PeerGone(); };
    const auto session = MakeSession(peer);
    return std::make_unique<ClientHandler>(
        std::make_unique<GuardedStorage>(storage->MakeTrackStorage(), session),
        std::make_unique<GuardedReaderFactory>(storage->MakeReaderFactory(client), session),
        std::make_unique<GuardedWriterFactory>(storage->MakeWriterFactory(client), session),
        [&connection] { connection.GiveRoomBack(); });
}

std::vector<StorageServer::Refused> StorageServer::RefusedByLimit() const {
    const Services::ServiceListenerCounters counters = listener.Counters();
    return {{"message-limit", counters.oversizedMessages},
            {"max-connections", counters.crowdedOut},
            {"max-workers", refusals.workers},
            {"bytes-in-flight", counters.delayedMessages},
            {"transfer-rate", counters.slowMessages + counters.slowReceivers},
            {"max-elements", counters.refusedMessages},
            {"max-ids", refusals.ids}};
}

std::shared_ptr<ClientSession> StorageServer::MakeSession(const Services::PeerAddress& peer) {
    const std::lock_guard guard(reloadMutex);
    return std::make_shared<ClientSession>(
        peer.connectionId, peer.text, access.RoleOf(peer, geteuid()), limits, refusals, observers);
}

void StorageServer::SetAccess(const AccessRules& rules) {
    const std::lock_guard guard(reloadMutex);
    access = rules;
}

void StorageServer::SetLimits(const ServerLimits& newLimits) {
    const std::lock_guard guard(reloadMutex);
    limits = newLimits;
}

void StorageServer::Listen(const ListenAddress& address, const ServerOptions& options) {
    const bool isUnix = address.kind == ListenAddress::Kind::Unix;
    const auto known = std::find(addresses.begin(), addresses.end(), address.Text());
    if (isUnix && known != addresses.end()) {
        // The socket of this address was passed.
        return;
    }
    try {
        if (isUnix) {
            listener.ListenUnix(address.path, options.socketMode);
        } else {
            listener.ListenTcp(address.host, address.port);
        }
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(error.what()) +
                                 "; end what is there, mend the address, or choose another one by "
                                 "--listen");
    }
    NoteAddresses(isUnix, options);
}

void StorageServer::ListenPassed(int socket, const ServerOptions& options) {
    int domain = 0;
    socklen_t size = sizeof(domain);
    const bool isUnix =
        getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
    try {
        listener.ListenDescriptor(socket);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(error.what()) +
                                 "; whoever starts the server passes it stream sockets that listen "
                                 "(ListenStream=), and no others");
    }
    NoteAddresses(isUnix, options);
}

// Of the listener's addresses those that came last.
void StorageServer::NoteAddresses(bool isUnix, const ServerOptions& options) {
    const std::vector<std::string> all = listener.Addresses();
    for (std::size_t i = addresses.size(); i < all.size(); ++i) {
        const std::string text = (isUnix ? "unix:" : "tcp:") + all.at(i);
        if (!isUnix && !options.listensInsecurely && !IsLoopback(all.at(i))) {
            throw std::runtime_error("Address " + text +
                                     " is reached from other machines, where anybody could do "
                                     "everything: --insecure-listen accepts that");
        }
        addresses.push_back(text);
    }
}

void StorageServer::AskStorage() {
    const std::unique_ptr<BrantelStorageApi::ITrackStorage> tracks = storage->MakeTrackStorage();
    Protocol::TrackList list;
    tracks->ListTracks(list);
    long space = 0;
    tracks->GetRemainingSpace(space);
}

ServedStatus StorageServer::GetStatus() const {
    ServedStatus status;
    status.addresses = addresses;
    for (const Refused& refused : RefusedByLimit()) {
        status.refusals.push_back({refused.limit, refused.count});
    }
    {
        const std::lock_guard guard(reloadMutex);
        for (const ServerLimits::Setting& setting : ServerLimits::settings) {
            status.limits.push_back({setting.name, limits.*setting.value});
        }
    }
    status.connections = listener.Counters();
    status.storage = storage->GetStatus();
    return status;
}

void StorageServer::Start() {
    listener.Start();
}

void StorageServer::Stop() {
    // First, so that no thread that the listener waits for waits for a chunk.
    storage->Stop();
    listener.Stop();
}

}  // namespace Brantel::Server
