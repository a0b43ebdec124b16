#pragma once

namespace BrantelStorageApi {

class ITrackWriter;

// Makes the writers that a server hands out.
class ITrackWriterFactory {
  public:
    virtual ~ITrackWriterFactory() = default;

    // A new writer on the track, which the caller owns. Throws an exception derived from
    // std::exception when it can't be made.
    virtual ITrackWriter* CreateTrackWriter(const long& trackId) = 0;

  protected:
    ITrackWriterFactory() = default;
    ITrackWriterFactory(const ITrackWriterFactory&) = default;
    ITrackWriterFactory& operator=(const ITrackWriterFactory&) = default;
};

}  // namespace BrantelStorageApi
