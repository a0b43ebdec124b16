#include "Storage.h"

#include "StorageCore.h"
#include "StoreRecovery.h"
#include "TrackReader.h"
#include "TrackStorage.h"
#include "TrackWriter.h"

#include <utility>

namespace Brantel::Tracks {

namespace {

class ReaderFactory : public BrantelStorageApi::ITrackReaderFactory {
  public:
    ReaderFactory(StorageCore& core, ClientConnection connection)
        : core(core), connection(std::move(connection)) {}

    BrantelStorageApi::ITrackReader* CreateTrackReader(const long& trackId) override {
        return std::make_unique<TrackReader>(core, connection, trackId).release();
    }

  private:
    StorageCore& core;
    const ClientConnection connection;
};

class WriterFactory : public BrantelStorageApi::ITrackWriterFactory {
  public:
    WriterFactory(StorageCore& core, ClientConnection connection)
        : core(core), connection(std::move(connection)) {}

    BrantelStorageApi::ITrackWriter* CreateTrackWriter(const long& trackId) override {
        return std::make_unique<TrackWriter>(core, connection, trackId).release();
    }

  private:
    StorageCore& core;
    const ClientConnection connection;
};

}  // namespace

Storage::Storage(Engine::IEngine& engine, StorageOptions options) {
    StoreRecovery::CheckFinished(engine);
    core = std::make_unique<StorageCore>(engine, std::move(options));
}

Storage::~Storage() = default;

void Storage::Stop() {
    core->Stop();
}

StorageStatus Storage::GetStatus() const {
    return core->GetStatus();
}

std::unique_ptr<BrantelStorageApi::ITrackStorage> Storage::MakeTrackStorage() {
    return std::make_unique<TrackStorage>(*core);
}

std::unique_ptr<BrantelStorageApi::ITrackReaderFactory> Storage::MakeReaderFactory(
    const ClientConnection& connection) {
    return std::make_unique<ReaderFactory>(*core, connection);
}

std::unique_ptr<BrantelStorageApi::ITrackWriterFactory> Storage::MakeWriterFactory(
    const ClientConnection& connection) {
    return std::make_unique<WriterFactory>(*core, connection);
}

}  // namespace Brantel::Tracks
