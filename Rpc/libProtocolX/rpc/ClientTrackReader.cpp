#include "rpc/ClientTrackReader.h"

#include "rpc/Exchange.h"

#include <utility>

namespace BrantelStorageApi {

ClientTrackReader::ClientTrackReader(Brantel::Services::IServiceConnection& connection,
                                     Brantel::Services::NativeMutex& mutex, const long& trackId)
    : connection(connection), mutex(mutex) {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_Constructor);
    auto& question = *exchange.request.mutable_trackreader_constructor();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackreader_constructor();
    handle = answer.object_handle();
}

void ClientTrackReader::DestroyOnServer() {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_Destructor);
    auto& question = *exchange.request.mutable_trackreader_destructor();
    question.set_object_handle(handle);
    exchange.Perform();
}

void ClientTrackReader::NextTimePoint(const Protocol::TimePoint& timecode,
                                      Protocol::TimePoint& nextTimePoint, bool& result) {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_NextTimePoint);
    auto& question = *exchange.request.mutable_trackreader_nexttimepoint();
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
    Exchange exchange(connection, mutex, OPERATION_TrackReader_GetChunk);
    auto& question = *exchange.request.mutable_trackreader_getchunk();
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto keysLoan = Lend<Field::Keys>(question, keys);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_getchunk();
    chunk = std::move(*answer.mutable_chunk());
    result = answer.result();
}

void ClientTrackReader::GetTrackId(long& result) {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_GetTrackId);
    auto& question = *exchange.request.mutable_trackreader_gettrackid();
    question.set_object_handle(handle);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackreader_gettrackid();
    result = answer.result();
}

void ClientTrackReader::PreviousTimePoint(const Protocol::TimePoint& timecode,
                                          Protocol::TimePoint& previousTimePoint, bool& result) {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_PreviousTimePoint);
    auto& question = *exchange.request.mutable_trackreader_previoustimepoint();
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
    Exchange exchange(connection, mutex, OPERATION_TrackReader_GetPreviousChunk);
    auto& question = *exchange.request.mutable_trackreader_getpreviouschunk();
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto keysLoan = Lend<Field::Keys>(question, keys);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_getpreviouschunk();
    chunk = std::move(*answer.mutable_chunk());
    result = answer.result();
}

void ClientTrackReader::GetNextChunk(const Protocol::TimePoint& timecode,
                                     const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                     bool& result) {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_GetNextChunk);
    auto& question = *exchange.request.mutable_trackreader_getnextchunk();
    question.set_object_handle(handle);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto keysLoan = Lend<Field::Keys>(question, keys);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackreader_getnextchunk();
    chunk = std::move(*answer.mutable_chunk());
    result = answer.result();
}

void ClientTrackReader::Wait(const Protocol::TimePoint& timecode, const int& timeout,
                             bool& result) {
    Exchange exchange(connection, mutex, OPERATION_TrackReader_Wait);
    auto& question = *exchange.request.mutable_trackreader_wait();
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
