#pragma once

#include <libProtocolX/rpc/ITrackWriter.h>

#include <cstdint>

namespace Brantel::Services {
class IServiceConnection;
class NativeMutex;
}  // namespace Brantel::Services

namespace BrantelStorageApi {

// A writer that lives on the server, addressed by its handle. Every operation is one exchange on
// the connection and throws std::runtime_error "Exception from server: " and the server's text when
// the server reports a failure, "Could not lock mutex", and what the connection throws. When the
// connection reports its failure by a result, the operation returns normally and leaves its outputs
// as they were. Any thread may call; calls on one connection wait for each other.
class ClientTrackWriter : public ITrackWriter {
  public:
    // Borrows the connection and its client's lock, and makes the writer on the server; throws what
    // an operation throws. When the connection reports its failure by a result, the handle is 0,
    // which names no object.
    ClientTrackWriter(Brantel::Services::IServiceConnection& connection,
                      Brantel::Services::NativeMutex& mutex, const long& trackId);
    // Sends nothing: the object on the server stays until DestroyOnServer.
    ~ClientTrackWriter() override = default;
    ClientTrackWriter(const ClientTrackWriter&) = delete;
    ClientTrackWriter& operator=(const ClientTrackWriter&) = delete;

    // Later operations are still sent; the server refuses them.
    void DestroyOnServer() override;
    // Copies nothing; the chunk must not be written to by another thread until this returns.
    void Append(const Protocol::Chunk& chunk) override;
    void GetTrackId(long& result) override;

  private:
    Brantel::Services::IServiceConnection& connection;
    Brantel::Services::NativeMutex& mutex;
    std::uint32_t handle = 0;
};

}  // namespace BrantelStorageApi
