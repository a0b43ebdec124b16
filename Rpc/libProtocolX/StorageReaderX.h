#pragma once

#include <libProtocolX/IStorageReaderX.h>
#include <libTime/TimePoint.h>

#include <memory>
#include <set>
#include <string>

namespace BrantelStorageApi {
class ITrackReader;
}

namespace Brantel::ProtocolX {

// A reader over one remote reader, its stub. Without a stub it asks nobody: time points are 0
// nanoseconds, the track is 0, there is no chunk.
class StorageReaderX : public IStorageReaderX {
  public:
    // Without a stub.
    StorageReaderX() noexcept;
    // Asks the storage to drop the remote reader. What fails then is one line on the standard
    // output, "Storage seems disconnected: " or "Exception from storage: " with the text, and never
    // thrown; an exception that isn't a std::runtime_error ends the process.
    ~StorageReaderX() override;
    StorageReaderX(const StorageReaderX&) = delete;
    StorageReaderX& operator=(const StorageReaderX&) = delete;

    // Takes the stub; the former one is destroyed, without a word to the storage.
    void SetReader(std::unique_ptr<BrantelStorageApi::ITrackReader> newReader);

    long GetTrackId() override;
    // Through NextTimePoint, as a derived class may override it.
    Time::TimePoint FirstTimePoint() override;
    // Through PreviousTimePoint, as a derived class may override it.
    Time::TimePoint LastTimePoint() override;
    Time::TimePoint NextTimePoint(Time::TimePoint timePoint) override;
    Time::TimePoint PreviousTimePoint(Time::TimePoint timePoint) override;
    bool GetChunk(DataChunk& chunk, Time::TimePoint timePoint,
                  const std::set<std::string>& keys) override;
    bool GetNextChunk(DataChunk& chunk, Time::TimePoint timePoint,
                      const std::set<std::string>& keys) override;
    bool GetPreviousChunk(DataChunk& chunk, Time::TimePoint timePoint,
                          const std::set<std::string>& keys) override;

  private:
    std::unique_ptr<BrantelStorageApi::ITrackReader> reader;
};

}  // namespace Brantel::ProtocolX
