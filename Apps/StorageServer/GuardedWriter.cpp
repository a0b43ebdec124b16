#include "GuardedWriter.h"

#include "PayloadSize.h"

namespace Brantel::Server {

namespace {

constexpr ClientSession::Operation Writing(const char* name) {
    return {name, OperationRecord::Kind::Append, Role::Writer};
}

}  // namespace

GuardedWriter::GuardedWriter(std::unique_ptr<ITrackWriter> writer,
                             std::shared_ptr<ClientSession> session, std::int64_t trackId)
    : writer(std::move(writer)),
      taker(dynamic_cast<IChunkTaker*>(this->writer.get())),
      session(std::move(session)),
      trackId(trackId) {
    this->session->WorkerOpened();
}

GuardedWriter::~GuardedWriter() {
    session->Close(Writing("CloseTrackWriter"), trackId, [this] { writer.reset(); });
}

template <typename Call>
void GuardedWriter::CarryAppend(const Protocol::Chunk& chunk, const Call& call) {
    session->Carry(Writing("Append"), trackId, [&](OperationRecord& record) {
        if (session->IsObserved()) {
            record.bytes = PayloadSizeOf(chunk);
        }
        call();
    });
}

void GuardedWriter::Append(const Protocol::Chunk& chunk) {
    CarryAppend(chunk, [&] { writer->Append(chunk); });
}

void GuardedWriter::AppendTaking(Protocol::Chunk& chunk) {
    CarryAppend(chunk, [&] {
        if (taker != nullptr) {
            taker->AppendTaking(chunk);
        } else {
            writer->Append(chunk);
        }
    });
}

void GuardedWriter::GetTrackId(long& result) {
    session->Carry(Writing("GetTrackId"), trackId,
                   [&](OperationRecord& /*record*/) { writer->GetTrackId(result); });
}

BrantelStorageApi::ITrackWriter* GuardedWriterFactory::CreateTrackWriter(const long& trackId) {
    std::unique_ptr<GuardedWriter> guarded;
    session->Carry(Writing("OpenTrackWriter"), trackId, [&](OperationRecord& /*record*/) {
        session->CheckWorkers();
        std::unique_ptr<BrantelStorageApi::ITrackWriter> writer(
            factory->CreateTrackWriter(trackId));
        guarded = std::make_unique<GuardedWriter>(std::move(writer), session, trackId);
    });
    return guarded.release();
}

}  // namespace Brantel::Server
