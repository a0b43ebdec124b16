#include "rpc/ClientTrackWriter.h"

#include "rpc/Exchange.h"

namespace BrantelStorageApi {

ClientTrackWriter::ClientTrackWriter(Brantel::Services::IServiceConnection& connection,
                                     Brantel::Services::NativeMutex& mutex, const long& trackId)
    : connection(connection), mutex(mutex) {
    Exchange exchange(connection, mutex, OPERATION_TrackWriter_Constructor);
    auto& question = *exchange.request.mutable_trackwriter_constructor();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackwriter_constructor();
    handle = answer.object_handle();
}

void ClientTrackWriter::DestroyOnServer() {
    Exchange exchange(connection, mutex, OPERATION_TrackWriter_Destructor);
    auto& question = *exchange.request.mutable_trackwriter_destructor();
    question.set_object_handle(handle);
    exchange.Perform();
}

void ClientTrackWriter::Append(const Protocol::Chunk& chunk) {
    Exchange exchange(connection, mutex, OPERATION_TrackWriter_Append);
    auto& question = *exchange.request.mutable_trackwriter_append();
    question.set_object_handle(handle);
    const auto chunkLoan = Lend<Field::Chunk>(question, chunk);
    exchange.Perform();
}

void ClientTrackWriter::GetTrackId(long& result) {
    Exchange exchange(connection, mutex, OPERATION_TrackWriter_GetTrackId);
    auto& question = *exchange.request.mutable_trackwriter_gettrackid();
    question.set_object_handle(handle);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackwriter_gettrackid();
    result = answer.result();
}

}  // namespace BrantelStorageApi
