#pragma once

#include "ClientSession.h"

#include <libProtocolX/rpc/IChunkTaker.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace Brantel::Server {

// A writer of one connection, which counts among those that the connection has open until it is
// destroyed.
class GuardedWriter : public BrantelStorageApi::ITrackWriter,
                      public BrantelStorageApi::IChunkTaker {
  public:
    GuardedWriter(std::unique_ptr<ITrackWriter> writer, std::shared_ptr<ClientSession> session,
                  std::int64_t trackId);
    ~GuardedWriter() override;
    GuardedWriter(const GuardedWriter&) = delete;
    GuardedWriter& operator=(const GuardedWriter&) = delete;

    void Append(const Protocol::Chunk& chunk) override;
    void AppendTaking(Protocol::Chunk& chunk) override;
    void GetTrackId(long& result) override;

  private:
    template <typename Call>
    void CarryAppend(const Protocol::Chunk& chunk, const Call& call);

    std::unique_ptr<ITrackWriter> writer;
    IChunkTaker* const taker;  // the same, or null
    const std::shared_ptr<ClientSession> session;
    const std::int64_t trackId;
};

// Makes writers for those who may write.
class GuardedWriterFactory : public BrantelStorageApi::ITrackWriterFactory {
  public:
    GuardedWriterFactory(std::unique_ptr<ITrackWriterFactory> factory,
                         std::shared_ptr<ClientSession> session)
        : factory(std::move(factory)), session(std::move(session)) {}

    BrantelStorageApi::ITrackWriter* CreateTrackWriter(const long& trackId) override;

  private:
    const std::unique_ptr<ITrackWriterFactory> factory;
    const std::shared_ptr<ClientSession> session;
};

}  // namespace Brantel::Server
