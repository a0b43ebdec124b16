#include "rpc/ClientTrackReader.h"

#include "rpc/Call.h"
#include "rpc/SpareChunk.h"

#include <memory>
#include <utility>

namespace BrantelStorageApi {
namespace {

// The chunks change places: what the caller's held goes where the next answer will.
template <class Answer>
void HandOver(Answer& answer, Protocol::Chunk& chunk, SpareChunk& spare) {
    chunk = std::move(*answer.mutable_chunk());
    spare.Keep(std::unique_ptr<Protocol::Chunk>(answer.release_chunk()));
}

}  // namespace

ClientTrackReader::ClientTrackReader(Brantel::Services::IServiceConnection& connection,
                                     Brantel::Services::NativeMutex& mutex, const long& trackId)
    : connection(connection), mutex(mutex), spare(std::make_unique<SpareChunk>()) {
    Call<OPERATION_TrackReader_Constructor> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackreader_constructor();
    handle = answer.object_handle();
}

ClientTrackReader::~ClientTrackReader() = default;

void ClientTrackReader::DestroyOnServer() {
    Call<OPERATION_TrackReader_Destructor> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    exchange.Perform();
}

void ClientTrackReader::NextTimePoint(const Protocol::TimePoint& timecode,
                                      Protocol::TimePoint& nextTimePoint, bool& result) {
    Call<OPERATION_TrackReader_NextTimePoint> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_nexttimepoint();
    nextTimePoint = std::move(*answer.mutable_nexttimepoint());
    result = answer.result();
}

void ClientTrackReader::GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                                 Protocol::Chunk& chunk, bool& result) {
    Call<OPERATION_TrackReader_GetChunk> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto keysLoan = Lend<Field::Keys>(question, keys);
    exchange.response.mutable_trackreader_getchunk()->set_allocated_chunk(spare->Take().release());
    // Empty, but with the memory.
    exchange.response.Clear();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_getchunk();
    HandOver(answer, chunk, *spare);
    result = answer.result();
}

void ClientTrackReader::GetTrackId(long& result) {
    Call<OPERATION_TrackReader_GetTrackId> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackreader_gettrackid();
    result = answer.result();
}

void ClientTrackReader::PreviousTimePoint(const Protocol::TimePoint& timecode,
                                          Protocol::TimePoint& previousTimePoint, bool& result) {
    Call<OPERATION_TrackReader_PreviousTimePoint> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_previoustimepoint();
    previousTimePoint = std::move(*answer.mutable_previoustimepoint());
    result = answer.result();
}

void ClientTrackReader::GetPreviousChunk(const Protocol::TimePoint& timecode,
                                         const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                         bool& result) {
    Call<OPERATION_TrackReader_GetPreviousChunk> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto keysLoan = Lend<Field::Keys>(question, keys);
    exchange.response.mutable_trackreader_getpreviouschunk()->set_allocated_chunk(
        spare->Take().release());
    // Empty, but with the memory.
    exchange.response.Clear();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_getpreviouschunk();
    HandOver(answer, chunk, *spare);
    result = answer.result();
}

void ClientTrackReader::GetNextChunk(const Protocol::TimePoint& timecode,
                                     const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                     bool& result) {
    Call<OPERATION_TrackReader_GetNextChunk> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto keysLoan = Lend<Field::Keys>(question, keys);
    exchange.response.mutable_trackreader_getnextchunk()->set_allocated_chunk(
        spare->Take().release());
    // Empty, but with the memory.
    exchange.response.Clear();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_getnextchunk();
    HandOver(answer, chunk, *spare);
    result = answer.result();
}

void ClientTrackReader::Wait(const Protocol::TimePoint& timecode, const int& timeout,
                             bool& result) {
    Call<OPERATION_TrackReader_Wait> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    question.set_timeout(timeout);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackreader_wait();
    result = answer.result();
}

}  // namespace BrantelStorageApi
