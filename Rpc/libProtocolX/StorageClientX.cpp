#include "StorageClientX.h"

#include "Converter.h"
#include "StorageReaderX.h"
#include "StorageWriterX.h"
#include "rpc/Client.h"
#include "rpc/ClientTrackReader.h"
#include "rpc/ClientTrackWriter.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/TcpSocketConnection.h>
#include <libServices/UnixDomainConnection.h>

#include <algorithm>
#include <stdexcept>

namespace Brantel::ProtocolX {
namespace {

using Services::FileDescriptorServiceConnection;
using Services::IServiceConnection;
using Services::TcpSocketConnection;
using Services::UnixDomainConnection;
using TcpConnection = TcpSocketConnection<FileDescriptorServiceConnection>;

// Ends an object whose address an application may still hold: the object is destroyed, with all
// that this does, and one that is connected to nothing takes its place.
template <typename Object>
void Detach(Object* object) noexcept {
    std::destroy_at(object);
    std::construct_at(object);
}

}  // namespace

StorageClientX::StorageClientX() = default;

StorageClientX::~StorageClientX() {
    // In key order, which the maps' own destructors don't keep.
    for (auto& [key, reader] : readers) {
        reader.reset();
    }
    for (auto& [trackId, writer] : writers) {
        writer.reset();
    }
    client.reset();
    connection.reset();
}

bool StorageClientX::ConnectToSlave(const std::string& host, short port, unsigned int timeout) {
    return Connect([&] {
        return std::make_unique<TcpConnection>(host, static_cast<unsigned short>(port), timeout);
    });
}

bool StorageClientX::ConnectToSlave(const std::string& path) {
    return Connect([&] { return std::make_unique<UnixDomainConnection>(path); });
}

bool StorageClientX::ConnectToSlave(std::unique_ptr<IServiceConnection> newConnection) {
    if (newConnection == nullptr) {
        Disconnect();
        return false;
    }
    return Connect([&] { return std::move(newConnection); });
}

void StorageClientX::Disconnect() {
    for (auto& [key, reader] : readers) {
        Detach(reader.get());
    }
    for (auto& [trackId, writer] : writers) {
        Detach(writer.get());
    }
    EndConnection();
}

void StorageClientX::EndConnection() {
    client.reset();
    connection.reset();
}

template <typename MakeConnection>
bool StorageClientX::Connect(MakeConnection makeConnection) {
    Disconnect();
    try {
        connection = makeConnection();
        client = std::make_unique<BrantelStorageApi::Client>(*connection);
        return true;
    } catch (const std::runtime_error&) {
        EndConnection();
        return false;
    }
}

bool StorageClientX::Connected() const {
    return connection != nullptr && client != nullptr;
}

void StorageClientX::GetVersion(int& major, int& minor, int& revision) {
    major = 2;
    minor = 1;
    revision = 5;
}

IStorageReaderX* StorageClientX::GetTrackReader(long trackId, long readerId) {
    if (client == nullptr) {
        throw std::runtime_error("Client not connected to create a reader");
    }
    const auto found = readers.find({trackId, readerId});
    if (found != readers.end()) {
        return found->second.get();
    }
    auto reader = std::make_unique<StorageReaderX>();
    reader->SetReader(std::make_unique<BrantelStorageApi::ClientTrackReader>(
        *connection, client->GetMutex(), trackId));
    return readers.emplace(std::pair(trackId, readerId), std::move(reader)).first->second.get();
}

IStorageWriterX* StorageClientX::GetTrackWriter(long trackId) {
    if (client == nullptr) {
        throw std::runtime_error("Client not connected to create a writer");
    }
    const auto found = writers.find(trackId);
    if (found != writers.end()) {
        return found->second.get();
    }
    auto writer = std::make_unique<StorageWriterX>();
    writer->SetWriter(std::make_unique<BrantelStorageApi::ClientTrackWriter>(
        *connection, client->GetMutex(), trackId));
    return writers.emplace(trackId, std::move(writer)).first->second.get();
}

void StorageClientX::CloseTrackReader(long trackId, long readerId) {
    readers.erase({trackId, readerId});
}

void StorageClientX::CloseTrackWriter(long trackId) {
    writers.erase(trackId);
}

bool StorageClientX::IsReader(long trackId, long readerId) const {
    return readers.count({trackId, readerId}) != 0;
}

long StorageClientX::GetMaxReaderId(long trackId) const {
    long highest = 0;
    for (const auto& [key, reader] : readers) {
        if (key.first == trackId) {
            highest = std::max(highest, key.second);
        }
    }
    return highest;
}

}  // namespace Brantel::ProtocolX
