#include "Support/RecordingObjects.h"

#include "Support/Text.h"

namespace BrantelStorageApi {

using Brantel::Tests::FromText;
namespace {

template <class Message>
void Fill(Message& message, const char* text) {
    message.MergeFrom(FromText<Message>(text));
}

}  // namespace

void RecordingStorage::GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) {
    journal.Called("storage.GetTrackProperties", trackId);
    Fill(properties, R"(items { key: "title" value: "\001y" })");
}

void RecordingStorage::GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                         const Protocol::TimePoint& out, long& nbChunks) {
    journal.Called("storage.GetNumberOfChunks", trackId, in, out);
    nbChunks = 51;
}

void RecordingStorage::DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) {
    journal.Called("storage.DeleteTrack", trackId);
    Fill(infoOut, "id: 61 size: 62 commandId: 63");
}

void RecordingStorage::GetTrackSize(const long& trackId, long& trackSize) {
    journal.Called("storage.GetTrackSize", trackId);
    trackSize = 52;
}

void RecordingStorage::GetTrackInfos(const Protocol::Ids& trackIds,
                                     Protocol::TrackInfos& trackInfos) {
    journal.Called("storage.GetTrackInfos", trackIds);
    Fill(trackInfos,
         "infos { trackId: 64 tpIn { nanoseconds: 65 } tpOut { nanoseconds: 66 } size: 67 "
         "capacity: 68 }");
}

void RecordingStorage::RemoveTrackProperties(const long& trackId,
                                             const Protocol::PropertyList& properties) {
    journal.Called("storage.RemoveTrackProperties", trackId, properties);
}

void RecordingStorage::GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    journal.Called("storage.GetActiveWorkers");
    Fill(workerIds, "ids: 71 ids: 72");
    Fill(trackIds, "ids: 73 ids: 74");
}

void RecordingStorage::GrowTrack(const Protocol::TrackParameters& infoIn,
                                 Protocol::TrackParameters& infoOut) {
    journal.Called("storage.GrowTrack", infoIn);
    Fill(infoOut, "id: 61 size: 62 commandId: 63");
}

void RecordingStorage::GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) {
    journal.Called("storage.GetCommandInfo", commandId);
    Fill(commandInfo, "type: ONGOING progression: 75");
}

void RecordingStorage::GetRemainingSpace(long& remainingSpace) {
    journal.Called("storage.GetRemainingSpace");
    remainingSpace = 54;
}

void RecordingStorage::GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    journal.Called("storage.GetBeginningOfTrack", trackId);
    Fill(timecode, "nanoseconds: 76");
}

void RecordingStorage::ClearTrack(const long& trackId) {
    journal.Called("storage.ClearTrack", trackId);
}

void RecordingStorage::GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                              const Protocol::TimePoint& out,
                                              Protocol::TimePoint& duration) {
    journal.Called("storage.GetAccumulatedDuration", trackId, in, out);
    Fill(duration, "nanoseconds: 77");
}

void RecordingStorage::Protect(const long& trackId, const Protocol::TimePoint& timecode,
                               const Protocol::TimePoint& duration, long& protectionId) {
    journal.Called("storage.Protect", trackId, timecode, duration);
    protectionId = 53;
}

void RecordingStorage::GetWorkerInfos(const Protocol::Ids& workerIds,
                                      Protocol::WorkerInfos& workerInfos) {
    journal.Called("storage.GetWorkerInfos", workerIds);
    Fill(workerInfos, R"(infos { type: READER workerId: 81 trackId: 82 connectionId: 83 )"
                      R"(throughput: 84 clientIpV4Address: "127.0.0.1" })");
}

void RecordingStorage::Unprotect(const long& protectionId) {
    journal.Called("storage.Unprotect", protectionId);
}

void RecordingStorage::GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    journal.Called("storage.GetEndOfTrack", trackId);
    Fill(timecode, "nanoseconds: 76");
}

void RecordingStorage::ListProtections(Protocol::ProtectionInfos& protectionInfos) {
    journal.Called("storage.ListProtections");
    Fill(protectionInfos,
         "infos { handle: 85 trackId: 86 tcIn { nanoseconds: 87 } tcOut { nanoseconds: 88 } }");
}

void RecordingStorage::CreateTrack(const Protocol::TrackParameters& infoIn,
                                   Protocol::TrackParameters& infoOut) {
    journal.Called("storage.CreateTrack", infoIn);
    Fill(infoOut, "id: 61 size: 62 commandId: 63");
}

void RecordingStorage::GetOngoingCommands(Protocol::Ids& commandIds) {
    journal.Called("storage.GetOngoingCommands");
    Fill(commandIds, "ids: 89");
}

void RecordingStorage::SetTrackProperties(const long& trackId,
                                          const Protocol::PropertyList& properties) {
    journal.Called("storage.SetTrackProperties", trackId, properties);
}

void RecordingStorage::ListTracks(Protocol::TrackList& list) {
    journal.Called("storage.ListTracks");
    Fill(list, "trackIds: 91 trackIds: 92");
}

void RecordingReader::NextTimePoint(const Protocol::TimePoint& timecode,
                                    Protocol::TimePoint& nextTimePoint, bool& result) {
    journal.Called("reader.NextTimePoint", timecode);
    Fill(nextTimePoint, "nanoseconds: 93");
    result = true;
}

void RecordingReader::GetChunk(const Protocol::TimePoint& timecode, const Protocol::KeyList& keys,
                               Protocol::Chunk& chunk, bool& result) {
    journal.Called("reader.GetChunk", timecode, keys);
    Fill(chunk, R"(timecode { nanoseconds: 95 } duration { nanoseconds: 96 } properties { )"
                R"(items { key: "codec" value: "jp\000eg" } } data { items { key: "image" )"
                R"(value: "\000\377b" } })");
    result = true;
}

void RecordingReader::GetTrackId(long& result) {
    journal.Called("reader.GetTrackId");
    result = 55;
}

void RecordingReader::PreviousTimePoint(const Protocol::TimePoint& timecode,
                                        Protocol::TimePoint& previousTimePoint, bool& result) {
    journal.Called("reader.PreviousTimePoint", timecode);
    Fill(previousTimePoint, "nanoseconds: 94");
    result = true;
}

void RecordingReader::GetPreviousChunk(const Protocol::TimePoint& timecode,
                                       const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                       bool& result) {
    journal.Called("reader.GetPreviousChunk", timecode, keys);
    Fill(chunk, R"(timecode { nanoseconds: 95 } duration { nanoseconds: 96 } properties { )"
                R"(items { key: "codec" value: "jp\000eg" } } data { items { key: "image" )"
                R"(value: "\000\377b" } })");
    result = true;
}

void RecordingReader::GetNextChunk(const Protocol::TimePoint& timecode,
                                   const Protocol::KeyList& keys, Protocol::Chunk& chunk,
                                   bool& result) {
    journal.Called("reader.GetNextChunk", timecode, keys);
    Fill(chunk, R"(timecode { nanoseconds: 95 } duration { nanoseconds: 96 } properties { )"
                R"(items { key: "codec" value: "jp\000eg" } } data { items { key: "image" )"
                R"(value: "\000\377b" } })");
    result = true;
}

void RecordingReader::Wait(const Protocol::TimePoint& timecode, const int& timeout, bool& result) {
    journal.Called("reader.Wait", timecode, timeout);
    result = true;
}

void RecordingWriter::Append(const Protocol::Chunk& chunk) {
    journal.Called("writer.Append", chunk);
}

void RecordingWriter::GetTrackId(long& result) {
    journal.Called("writer.GetTrackId");
    result = 56;
}

}  // namespace BrantelStorageApi
