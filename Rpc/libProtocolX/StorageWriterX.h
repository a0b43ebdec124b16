#pragma once

#include <libProtocolX/IStorageWriterX.h>

#include <memory>

namespace BrantelStorageApi {
class ITrackWriter;
}

namespace Brantel::ProtocolX {

// A writer over one remote writer, its stub. Without a stub it asks nobody: the track is 0, what is
// appended goes nowhere.
class StorageWriterX : public IStorageWriterX {
  public:
    StorageWriterX() noexcept;
    // As StorageReaderX, for the remote writer.
    ~StorageWriterX() override;
    StorageWriterX(const StorageWriterX&) = delete;
    StorageWriterX& operator=(const StorageWriterX&) = delete;

    // Takes the stub; the former one is destroyed, without a word to the storage.
    void SetWriter(std::unique_ptr<BrantelStorageApi::ITrackWriter> newWriter);

    long GetTrackId() override;
    void Append(const DataChunk& chunk) override;

  private:
    std::unique_ptr<BrantelStorageApi::ITrackWriter> writer;
};

}  // namespace Brantel::ProtocolX
