#pragma once

namespace BrantelStorageApi {

class ITrackReader;

// Makes the readers that a server hands out.
class ITrackReaderFactory {
  public:
    virtual ~ITrackReaderFactory() = default;

    // A new reader on the track, which the caller owns. Throws an exception derived from
    // std::exception when it can't be made.
    virtual ITrackReader* CreateTrackReader(const long& trackId) = 0;

  protected:
    ITrackReaderFactory() = default;
    ITrackReaderFactory(const ITrackReaderFactory&) = default;
    ITrackReaderFactory& operator=(const ITrackReaderFactory&) = default;
};

}  // namespace BrantelStorageApi
