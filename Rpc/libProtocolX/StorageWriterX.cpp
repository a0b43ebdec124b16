#include "StorageWriterX.h"

#include "DataChunk.h"
#include "RemoteRelease.h"
#include "rpc/ITrackWriter.h"

#include <type_traits>

namespace Brantel::ProtocolX {

// Put in place of a destroyed writer when its client connects again, where nothing may fail.
static_assert(std::is_nothrow_default_constructible_v<StorageWriterX>);

StorageWriterX::StorageWriterX() noexcept = default;

StorageWriterX::~StorageWriterX() {
    ReleaseRemote(writer);
}

void StorageWriterX::SetWriter(std::unique_ptr<BrantelStorageApi::ITrackWriter> newWriter) {
    writer.swap(newWriter);
}

long StorageWriterX::GetTrackId() {
    long trackId = 0;
    if (writer != nullptr) {
        writer->GetTrackId(trackId);
    }
    return trackId;
}

void StorageWriterX::Append(const DataChunk& chunk) {
    if (writer != nullptr) {
        writer->Append(*chunk.activeChunk);
    }
}

}  // namespace Brantel::ProtocolX
