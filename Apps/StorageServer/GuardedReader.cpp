#include "GuardedReader.h"

#include "PayloadSize.h"

namespace Brantel::Server {

namespace {

constexpr ClientSession::Operation Reading(const char* name) {
    return {name, OperationRecord::Kind::Read, Role::Reader};
}

}  // namespace

GuardedReader::GuardedReader(std::unique_ptr<ITrackReader> reader,
                             std::shared_ptr<ClientSession> session, std::int64_t trackId)
    : reader(std::move(reader)), session(std::move(session)), trackId(trackId) {
    this->session->WorkerOpened();
}

GuardedReader::~GuardedReader() {
    session->Close(Reading("CloseTrackReader"), trackId, [this] { reader.reset(); });
}

void GuardedReader::Count(OperationRecord& record, const Protocol::Chunk& chunk, bool found) const {
    if (found && session->IsObserved()) {
        record.bytes = PayloadSizeOf(chunk);
    }
}

void GuardedReader::NextTimePoint(const Protocol::TimePoint& timecode,
                                  Protocol::TimePoint& nextTimePoint, bool& result) {
    session->Carry(Reading("NextTimePoint"), trackId, [&](OperationRecord& /*record*/) {
        reader->NextTimePoint(timecode, nextTimePoint, result);
    });
}

void GuardedReader::GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                             Protocol::Chunk& chunk, bool& result) {
    session->Carry(Reading("GetChunk"), trackId, [&](OperationRecord& record) {
        reader->GetChunk(timecode, keys, chunk, result);
        Count(record, chunk, result);
    });
}

void GuardedReader::GetTrackId(long& result) {
    session->Carry(Reading("GetTrackId"), trackId,
                   [&](OperationRecord& /*record*/) { reader->GetTrackId(result); });
}

void GuardedReader::PreviousTimePoint(const Protocol::TimePoint& timecode,
                                      Protocol::TimePoint& previousTimePoint, bool& result) {
    session->Carry(Reading("PreviousTimePoint"), trackId, [&](OperationRecord& /*record*/) {
        reader->PreviousTimePoint(timecode, previousTimePoint, result);
    });
}

void GuardedReader::GetPreviousChunk(const Protocol::TimePoint& timecode,
                                     const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                     bool& result) {
    session->Carry(Reading("GetPreviousChunk"), trackId, [&](OperationRecord& record) {
        reader->GetPreviousChunk(timecode, keys, chunk, result);
        Count(record, chunk, result);
    });
}

void GuardedReader::GetNextChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                                 Protocol::Chunk& chunk, bool& result) {
    session->Carry(Reading("GetNextChunk"), trackId, [&](OperationRecord& record) {
        reader->GetNextChunk(timecode, keys, chunk, result);
        Count(record, chunk, result);
    });
}

void GuardedReader::Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) {
    session->Carry(Reading("Wait"), trackId,
                   [&](OperationRecord& /*record*/) { reader->Wait(timecode, timeout, result); });
}

BrantelStorageApi::ITrackReader* GuardedReaderFactory::CreateTrackReader(const long& trackId) {
    std::unique_ptr<GuardedReader> guarded;
    session->Carry(Reading("OpenTrackReader"), trackId, [&](OperationRecord& /*record*/) {
        session->CheckWorkers();
        std::unique_ptr<BrantelStorageApi::ITrackReader> reader(
            factory->CreateTrackReader(trackId));
        guarded = std::make_unique<GuardedReader>(std::move(reader), session, trackId);
    });
    return guarded.release();
}

}  // namespace Brantel::Server
