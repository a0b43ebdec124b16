#include "StorageReaderX.h"

#include "Converter.h"
#include "DataChunk.h"
#include "RemoteRelease.h"
#include "rpc/ITrackReader.h"

#include <CommonMessages.pb.h>

#include <type_traits>
#include <utility>

namespace Brantel::ProtocolX {
namespace {

using BrantelStorageApi::ITrackReader;

Protocol::TimePoint Message(Time::TimePoint timePoint) {
    Protocol::TimePoint message;
    Converter::To(timePoint, message);
    return message;
}

using Step = void (ITrackReader::*)(const Protocol::TimePoint&, Protocol::TimePoint&, bool&);

Time::TimePoint Walk(ITrackReader* reader, Step step, Time::TimePoint timePoint) {
    if (reader == nullptr) {
        return {};
    }
    Protocol::TimePoint answer;
    bool found = false;
    (reader->*step)(Message(timePoint), answer, found);
    return found ? Converter::From(answer) : Time::TimePoint::Nanoseconds(-1);
}

using Lookup = void (ITrackReader::*)(const Protocol::TimePoint&, const Protocol::KeyList&,
                                      Protocol::Chunk&, bool&);

bool Read(ITrackReader* reader, Lookup lookup, Protocol::Chunk& chunk, Time::TimePoint timePoint,
          const std::set<std::string>& keys) {
    if (reader == nullptr) {
        return false;
    }
    Protocol::KeyList keyList;
    for (const std::string& key : keys) {
        keyList.add_keys(key);
    }
    bool found = false;
    (reader->*lookup)(Message(timePoint), keyList, chunk, found);
    return found;
}

}  // namespace

// Put in place of a destroyed reader when its client connects again, where nothing may fail.
static_assert(std::is_nothrow_default_constructible_v<StorageReaderX>);

StorageReaderX::StorageReaderX() noexcept = default;

StorageReaderX::~StorageReaderX() {
    ReleaseRemote(reader);
}

void StorageReaderX::SetReader(std::unique_ptr<ITrackReader> newReader) {
    reader.swap(newReader);
}

long StorageReaderX::GetTrackId() {
    long trackId = 0;
    if (reader != nullptr) {
        reader->GetTrackId(trackId);
    }
    return trackId;
}

Time::TimePoint StorageReaderX::FirstTimePoint() {
    return NextTimePoint(Time::TimePoint::Nanoseconds(-1));
}

Time::TimePoint StorageReaderX::LastTimePoint() {
    return PreviousTimePoint(Time::TimePoint::GetHighestTimePoint());
}

Time::TimePoint StorageReaderX::NextTimePoint(Time::TimePoint timePoint) {
    return Walk(reader.get(), &ITrackReader::NextTimePoint, timePoint);
}

Time::TimePoint StorageReaderX::PreviousTimePoint(Time::TimePoint timePoint) {
    return Walk(reader.get(), &ITrackReader::PreviousTimePoint, timePoint);
}

bool StorageReaderX::GetChunk(DataChunk& chunk, Time::TimePoint timePoint,
                              const std::set<std::string>& keys) {
    return Read(reader.get(), &ITrackReader::GetChunk, *chunk.activeChunk, timePoint, keys);
}

bool StorageReaderX::GetNextChunk(DataChunk& chunk, Time::TimePoint timePoint,
                                  const std::set<std::string>& keys) {
    return Read(reader.get(), &ITrackReader::GetNextChunk, *chunk.activeChunk, timePoint, keys);
}

bool StorageReaderX::GetPreviousChunk(DataChunk& chunk, Time::TimePoint timePoint,
                                      const std::set<std::string>& keys) {
    return Read(reader.get(), &ITrackReader::GetPreviousChunk, *chunk.activeChunk, timePoint, keys);
}

}  // namespace Brantel::ProtocolX
