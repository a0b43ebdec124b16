#pragma once

#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>
#include <libServices/IServiceHandler.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>

// The calls on a storage as messages: stubs at the client, the service at the server.
namespace BrantelStorageApi {

class IChunkTaker;

// The server's half of the protocol: receives requests, turns each into one call of the storage, of
// a factory, or of a reader or writer that a client made, and answers. Readers and writers are
// known by handles, counted from 1; a freed handle is given out again before a new one, the last
// freed first. They belong to the service, not to the connection they were made on: they stay until
// a request destroys them, or the service ends.
//
// Takes no lock. One service may serve several connections at once only when the server program
// serialises the calls, for example by a ServeRequest that locks.
class Service : public Brantel::Services::IServiceHandler {
  public:
    // Owns all three. Any may be null: what needs it then answers "The service component has not
    // been configured".
    Service(std::unique_ptr<ITrackStorage> trackStorage,
            std::unique_ptr<ITrackReaderFactory> readerFactory,
            std::unique_ptr<ITrackWriterFactory> writerFactory);
    // Deletes the readers and writers in the order of their handles, then the reader factory, the
    // writer factory and the storage.
    ~Service() override;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Serves one connection, one request at a time, until the client ends it, the connection
    // reports its failure or a std::runtime_error is thrown; other exceptions leave. An answer that
    // can't be sent for its own sake is replaced by a failure with the reason, so that no client
    // waits in vain. Keeps at most 64 KiB of memory for each direction between requests.
    void Handle(Brantel::Services::IServiceConnection& connection) override;

    // Serves one request. A failure, reported by any std::exception, becomes part of the response;
    // exceptions of other types leave.
    virtual void ServeRequest(const Request& request, Response& response);

  protected:
    // Throws std::runtime_error "The service component has not been configured".
    ITrackStorage& GetTrackStorage();

    // The object with this handle; null when it is of the other kind or was registered as null. T
    // is ITrackReader or ITrackWriter. Throws std::runtime_error "Accessing an invalid remote
    // object" for an unknown handle.
    template <class T>
    T* GetDynamicObject(std::uint32_t handle);

  private:
    // The operations, by the kind of their target; defined beside the service.
    struct OnStorage;
    struct OnReader;
    struct OnWriter;
    using Call = void (*)(Service& service, const Request& request, Response& response);

    // A registered object, and as what it may be called: cast once instead of for every call.
    struct RemoteObject {
        DynamicObject* object;
        ITrackReader* reader;
        ITrackWriter* writer;
        IChunkTaker* taker;
    };

    static Call FindCall(Operation operation);
    std::uint32_t Register(std::unique_ptr<DynamicObject> object);
    void Release(std::uint32_t handle);

    // objects: owned. freeHandles: used as a stack, at its back. The destructor deletes the
    // objects; then the members go, the last one first.
    std::uint32_t nextHandle = 1;
    std::map<std::uint32_t, RemoteObject> objects;
    std::deque<std::uint32_t> freeHandles;
    std::unique_ptr<ITrackStorage> trackStorage;
    std::unique_ptr<ITrackWriterFactory> writerFactory;
    std::unique_ptr<ITrackReaderFactory> readerFactory;
};

}  // namespace BrantelStorageApi
