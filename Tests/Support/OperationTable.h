#pragma once

#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libProtocolX/rpc/ClientTrackWriter.h>

#include <memory>
#include <span>
#include <string>

namespace BrantelStorageApi {

// A client with a reader and a writer on one connection.
class Stubs {
  public:
    explicit Stubs(Brantel::Services::IServiceConnection& connection)
        : client(connection), connection(connection) {}

    ClientTrackStorage& Storage() { return client.GetTrackStorage(); }
    void MakeReader(long trackId) {
        reader = std::make_unique<ClientTrackReader>(connection, client.GetMutex(), trackId);
    }
    void MakeWriter(long trackId) {
        writer = std::make_unique<ClientTrackWriter>(connection, client.GetMutex(), trackId);
    }

    Client client;
    std::unique_ptr<ClientTrackReader> reader;
    std::unique_ptr<ClientTrackWriter> writer;

  private:
    Brantel::Services::IServiceConnection& connection;
};

// Something to write every kind of result to, none of them empty.
struct Outputs {
    explicit Outputs(bool flag = true);

    // What differs from a fresh one, such as `number: 51 chunk { }`; empty when nothing does.
    std::string Changes() const;

    bool flag;
    long number = -4242;
    Protocol::Chunk chunk;
    Protocol::CommandInfo commandInfo;
    Protocol::Ids ids;
    Protocol::Ids moreIds;
    Protocol::PropertyList propertyList;
    Protocol::ProtectionInfos protectionInfos;
    Protocol::TimePoint timePoint;
    Protocol::TrackInfos trackInfos;
    Protocol::TrackList trackList;
    Protocol::TrackParameters trackParameters;
    Protocol::WorkerInfos workerInfos;

  private:
    bool flagBefore;
};

// One operation, seen from every side. In the texts a reader has the handle 1 and a writer 2.
struct OperationRow {
    const char* name;     // of the operation, without its prefix, and of its parts of the envelopes
    const char* request;  // the fields of the request's part
    const char* response;  // the fields of the response's part
    const char* call;      // what the server's object is asked; its answers are those in `response`
    void (*stub)(Stubs& stubs, Outputs& out);  // the stub's call
    const char* outputs;                       // the changes that it makes to Outputs(false)
    const char* neutral;  // the changes that it makes to Outputs(true) for an answer without a part
};

// The operations 2 to 36: the storage's, the reader's, the writer's. The constructor of each comes
// first and the destructor last.
std::span<const OperationRow> OperationTable();

Request RequestOf(const OperationRow& row);
Response ResponseOf(const OperationRow& row);

}  // namespace BrantelStorageApi
