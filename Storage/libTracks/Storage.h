#pragma once

#include <libEngine/IEngine.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>
#include <libTracks/ClientConnection.h>
#include <libTracks/StorageOptions.h>
#include <libTracks/StorageStatus.h>

#include <memory>
#include <string>

namespace Brantel::Tracks {

class StorageCore;

// The track storage of a server, over one engine: all tracks, shared by all connections. What each
// connection gets are thin objects of its own, which a Service then owns; they must be gone before
// the storage is. Thread-safe.
class Storage {
  public:
    // Opens what the engine (borrowed) holds, finishes or undoes what an earlier run left, and
    // starts the thread that carries commands out. A track that can't be loaded is logged, and only
    // its operations fail. Throws std::runtime_error when the store can't be read at all.
    Storage(Engine::IEngine& engine, StorageOptions options);
    // Stops.
    ~Storage();
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    // Ends every waiting call with an error, cancels the commands that wait or run, and accepts no
    // new ones. Everything else goes on working. May be called by any thread, and again.
    void Stop();

    std::unique_ptr<BrantelStorageApi::ITrackStorage> MakeTrackStorage();
    std::unique_ptr<BrantelStorageApi::ITrackReaderFactory> MakeReaderFactory(
        const ClientConnection& connection);
    std::unique_ptr<BrantelStorageApi::ITrackWriterFactory> MakeWriterFactory(
        const ClientConnection& connection);

    // What there is and what goes on. Waits for nobody longer than a moment; costs time and memory
    // for each track and each worker.
    StorageStatus GetStatus() const;

  private:
    std::unique_ptr<StorageCore> core;  // constant after construction
};

}  // namespace Brantel::Tracks
