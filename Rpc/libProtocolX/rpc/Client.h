#pragma once

#include <libProtocolX/rpc/ClientTrackStorage.h>
#include <libServices/NativeMutex.h>

namespace Brantel::Services {
class IServiceConnection;
}

namespace BrantelStorageApi {

// The client's end of one connection to a track storage: the lock that makes each call on it one
// exchange, and the stub of the storage. The connection is borrowed and must outlive the client,
// and the client every reader and writer stub that uses its lock. Calls from several threads are
// serialised by the lock.
class Client {
  public:
    // Sends nothing. Throws std::runtime_error "Could not init mutex".
    explicit Client(Brantel::Services::IServiceConnection& connection);
    // Tells the server that the connection ends and waits for no answer. No other thread may be in
    // a call on the connection. A connection that throws here ends the process.
    virtual ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // The storage; lives as long as the client.
    ClientTrackStorage& GetTrackStorage() noexcept { return trackStorage; }
    // The lock to give to the reader and writer stubs of this connection.
    Brantel::Services::NativeMutex& GetMutex() noexcept { return mutex; }

  private:
    Brantel::Services::IServiceConnection& connection;
    Brantel::Services::NativeMutex mutex;
    ClientTrackStorage trackStorage;
};

}  // namespace BrantelStorageApi
