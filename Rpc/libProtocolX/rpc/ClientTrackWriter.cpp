#include "rpc/ClientTrackWriter.h"

#include "rpc/Call.h"

namespace BrantelStorageApi {

ClientTrackWriter::ClientTrackWriter(Brantel::Services::IServiceConnection& connection,
                                     Brantel::Services::NativeMutex& mutex, const long& trackId)
    : connection(connection), mutex(mutex) {
    Call<OPERATION_TrackWriter_Constructor> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackwriter_constructor();
    handle = answer.object_handle();
}

void ClientTrackWriter::DestroyOnServer() {
    Call<OPERATION_TrackWriter_Destructor> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    exchange.Perform();
}

void ClientTrackWriter::Append(const Protocol::Chunk& chunk) {
    Call<OPERATION_TrackWriter_Append> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    const auto chunkLoan = Lend<Field::Chunk>(question, chunk);
    exchange.Perform();
}

void ClientTrackWriter::GetTrackId(long& result) {
    Call<OPERATION_TrackWriter_GetTrackId> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_object_handle(handle);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackwriter_gettrackid();
    result = answer.result();
}

}  // namespace BrantelStorageApi
