#pragma once

#include <libProtocolX/rpc/ITrackReader.h>

#include <cstdint>
#include <memory>

namespace Brantel::Services {
class IServiceConnection;
class NativeMutex;
}  // namespace Brantel::Services

namespace BrantelStorageApi {

class SpareChunk;

// A reader that lives on the server, addressed by its handle. Every operation is one exchange on
// the connection and throws std::runtime_error "Exception from server: " and the server's text when
// the server reports a failure, "Could not lock mutex", and what the connection throws. When the
// connection reports its failure by a result, the operation returns normally and leaves its outputs
// as they were. Any thread may call; calls on one connection wait for each other, so that a Wait
// holds all others back until the server answers. What a chunk that is read into held before, up to
// 16 KiB of memory, is emptied and kept by the reader for the next answer.
class ClientTrackReader : public ITrackReader {
  public:
    // Borrows the connection and its client's lock, and makes the reader on the server; throws what
    // an operation throws. When the connection reports its failure by a result, the handle is 0,
    // which names no object.
    ClientTrackReader(Brantel::Services::IServiceConnection& connection,
                      Brantel::Services::NativeMutex& mutex, const long& trackId);
    // Sends nothing: the object on the server stays until DestroyOnServer.
    ~ClientTrackReader() override;
    ClientTrackReader(const ClientTrackReader&) = delete;
    ClientTrackReader& operator=(const ClientTrackReader&) = delete;

    // Later operations are still sent; the server refuses them.
    void DestroyOnServer() override;
    void NextTimePoint(const Protocol::TimePoint& timecode, Protocol::TimePoint& nextTimePoint,
                       bool& result) override;
    void GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                  Protocol::Chunk& chunk, bool& result) override;
    void GetTrackId(long& result) override;
    void PreviousTimePoint(const Protocol::TimePoint& timecode,
                           Protocol::TimePoint& previousTimePoint, bool& result) override;
    void GetPreviousChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                          Protocol::Chunk& chunk, bool& result) override;
    void GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                      Protocol::Chunk& chunk, bool& result) override;
    void Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) override;

  private:
    Brantel::Services::IServiceConnection& connection;
    Brantel::Services::NativeMutex& mutex;
    std::uint32_t handle = 0;
    const std::unique_ptr<SpareChunk> spare;
};

}  // namespace BrantelStorageApi
