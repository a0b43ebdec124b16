#pragma once

#include "ClientSession.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace Brantel::Server {

// A reader of one connection, which counts among those that the connection has open until it is
// destroyed.
class GuardedReader : public BrantelStorageApi::ITrackReader {
  public:
    GuardedReader(std::unique_ptr<ITrackReader> reader, std::shared_ptr<ClientSession> session,
                  std::int64_t trackId);
    ~GuardedReader() override;
    GuardedReader(const GuardedReader&) = delete;
    GuardedReader& operator=(const GuardedReader&) = delete;

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
    // Says how much the call has read.
    void Count(OperationRecord& record, const Protocol::Chunk& chunk, bool found) const;

    std::unique_ptr<ITrackReader> reader;
    const std::shared_ptr<ClientSession> session;
    const std::int64_t trackId;
};

// Makes readers for those who may read.
class GuardedReaderFactory : public BrantelStorageApi::ITrackReaderFactory {
  public:
    GuardedReaderFactory(std::unique_ptr<ITrackReaderFactory> factory,
                         std::shared_ptr<ClientSession> session)
        : factory(std::move(factory)), session(std::move(session)) {}

    BrantelStorageApi::ITrackReader* CreateTrackReader(const long& trackId) override;

  private:
    const std::unique_ptr<ITrackReaderFactory> factory;
    const std::shared_ptr<ClientSession> session;
};

}  // namespace Brantel::Server
