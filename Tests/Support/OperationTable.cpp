#include "Support/OperationTable.h"

#include "Support/Text.h"

namespace BrantelStorageApi {

using Brantel::Tests::FromText;
using Brantel::Tests::ToText;
using Protocol::Chunk;
using Protocol::Ids;
using Protocol::KeyList;
using Protocol::PropertyList;
using Protocol::TimePoint;
using Protocol::TrackParameters;

namespace {

void Compare(std::string& changes, const char* name, const google::protobuf::Message& before,
             const google::protobuf::Message& now) {
    if (ToText(before) != ToText(now)) {
        const std::string text = ToText(now);
        changes += std::string(name) + (text.empty() ? " { } " : " { " + text + " } ");
    }
}

std::string Part(const char* name, const char* fields) {
    return std::string(name) + " { " + fields + " }";
}

constexpr OperationRow rows[] = {
    {"TrackStorage_GetTrackProperties", "trackId: 11",
     R"(properties { items { key: "title" value: "\001y" } })", "storage.GetTrackProperties(11)",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetTrackProperties(11, out.propertyList); },
     R"(propertyList { items { key: "title" value: "\001y" } })", "propertyList { }"},
    {"TrackStorage_GetNumberOfChunks", "trackId: 11 in { nanoseconds: 2 } out { nanoseconds: 3 }",
     "nbChunks: 51", "storage.GetNumberOfChunks(11, { nanoseconds: 2 }, { nanoseconds: 3 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().GetNumberOfChunks(11, FromText<TimePoint>("nanoseconds: 2"),
                                           FromText<TimePoint>("nanoseconds: 3"), out.number);
     },
     "number: 51", "number: 0"},
    {"TrackStorage_DeleteTrack", "trackId: 11", "infoOut { id: 61 size: 62 commandId: 63 }",
     "storage.DeleteTrack(11)",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().DeleteTrack(11, out.trackParameters); },
     "trackParameters { id: 61 size: 62 commandId: 63 }", "trackParameters { }"},
    {"TrackStorage_GetTrackSize", "trackId: 11", "trackSize: 52", "storage.GetTrackSize(11)",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetTrackSize(11, out.number); }, "number: 52",
     "number: 0"},
    {"TrackStorage_GetTrackInfos", "trackIds { ids: 21 ids: 22 }",
     "trackInfos { infos { trackId: 64 tpIn { nanoseconds: 65 } tpOut { nanoseconds: 66 } "
     "size: 67 capacity: 68 } }",
     "storage.GetTrackInfos({ ids: 21 ids: 22 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().GetTrackInfos(FromText<Ids>("ids: 21 ids: 22"), out.trackInfos);
     },
     "trackInfos { infos { trackId: 64 tpIn { nanoseconds: 65 } tpOut { nanoseconds: 66 } "
     "size: 67 capacity: 68 } }",
     "trackInfos { }"},
    {"TrackStorage_RemoveTrackProperties",
     R"(trackId: 11 properties { items { key: "name" value: "\000x" } })", "",
     R"(storage.RemoveTrackProperties(11, { items { key: "name" value: "\000x" } }))",
     [](Stubs& stubs, Outputs&) {
         stubs.Storage().RemoveTrackProperties(
             11, FromText<PropertyList>(R"(items { key: "name" value: "\000x" })"));
     },
     "", ""},
    {"TrackStorage_GetActiveWorkers", "",
     "workerIds { ids: 71 ids: 72 } trackIds { ids: 73 ids: 74 }", "storage.GetActiveWorkers()",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetActiveWorkers(out.ids, out.moreIds); },
     "ids { ids: 71 ids: 72 } moreIds { ids: 73 ids: 74 }", "ids { } moreIds { }"},
    {"TrackStorage_GrowTrack", "infoIn { id: 31 size: 32 }",
     "infoOut { id: 61 size: 62 commandId: 63 }", "storage.GrowTrack({ id: 31 size: 32 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().GrowTrack(FromText<TrackParameters>("id: 31 size: 32"),
                                   out.trackParameters);
     },
     "trackParameters { id: 61 size: 62 commandId: 63 }", "trackParameters { }"},
    {"TrackStorage_GetCommandInfo", "commandId: 12",
     "commandInfo { type: ONGOING progression: 75 }", "storage.GetCommandInfo(12)",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetCommandInfo(12, out.commandInfo); },
     "commandInfo { type: ONGOING progression: 75 }", "commandInfo { }"},
    {"TrackStorage_GetRemainingSpace", "", "remainingSpace: 54", "storage.GetRemainingSpace()",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetRemainingSpace(out.number); },
     "number: 54", "number: 0"},
    {"TrackStorage_GetBeginningOfTrack", "trackId: 11", "timecode { nanoseconds: 76 }",
     "storage.GetBeginningOfTrack(11)",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetBeginningOfTrack(11, out.timePoint); },
     "timePoint { nanoseconds: 76 }", "timePoint { }"},
    {"TrackStorage_ClearTrack", "trackId: 11", "", "storage.ClearTrack(11)",
     [](Stubs& stubs, Outputs&) { stubs.Storage().ClearTrack(11); }, "", ""},
    {"TrackStorage_GetAccumulatedDuration",
     "trackId: 11 in { nanoseconds: 2 } out { nanoseconds: 3 }", "duration { nanoseconds: 77 }",
     "storage.GetAccumulatedDuration(11, { nanoseconds: 2 }, { nanoseconds: 3 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().GetAccumulatedDuration(11, FromText<TimePoint>("nanoseconds: 2"),
                                                FromText<TimePoint>("nanoseconds: 3"),
                                                out.timePoint);
     },
     "timePoint { nanoseconds: 77 }", "timePoint { }"},
    {"TrackStorage_Protect", "trackId: 11 timecode { nanoseconds: 4 } duration { nanoseconds: 5 }",
     "protectionId: 53", "storage.Protect(11, { nanoseconds: 4 }, { nanoseconds: 5 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().Protect(11, FromText<TimePoint>("nanoseconds: 4"),
                                 FromText<TimePoint>("nanoseconds: 5"), out.number);
     },
     "number: 53", "number: 0"},
    {"TrackStorage_GetWorkerInfos", "workerIds { ids: 23 ids: 24 }",
     R"(workerInfos { infos { type: READER workerId: 81 trackId: 82 )"
     R"(connectionId: 83 throughput: 84 clientIpV4Address: "127.0.0.1" } })",
     "storage.GetWorkerInfos({ ids: 23 ids: 24 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().GetWorkerInfos(FromText<Ids>("ids: 23 ids: 24"), out.workerInfos);
     },
     R"(workerInfos { infos { type: READER workerId: 81 trackId: 82 )"
     R"(connectionId: 83 throughput: 84 clientIpV4Address: "127.0.0.1" } })",
     "workerInfos { }"},
    {"TrackStorage_Unprotect", "protectionId: 13", "", "storage.Unprotect(13)",
     [](Stubs& stubs, Outputs&) { stubs.Storage().Unprotect(13); }, "", ""},
    {"TrackStorage_GetEndOfTrack", "trackId: 11", "timecode { nanoseconds: 76 }",
     "storage.GetEndOfTrack(11)",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetEndOfTrack(11, out.timePoint); },
     "timePoint { nanoseconds: 76 }", "timePoint { }"},
    {"TrackStorage_ListProtections", "",
     "protectionInfos { infos { handle: 85 trackId: 86 tcIn { nanoseconds: 87 } tcOut { "
     "nanoseconds: 88 } } }",
     "storage.ListProtections()",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().ListProtections(out.protectionInfos); },
     "protectionInfos { infos { handle: 85 trackId: 86 tcIn { nanoseconds: 87 } tcOut { "
     "nanoseconds: 88 } } }",
     "protectionInfos { }"},
    {"TrackStorage_CreateTrack", "infoIn { id: 31 size: 32 }",
     "infoOut { id: 61 size: 62 commandId: 63 }", "storage.CreateTrack({ id: 31 size: 32 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.Storage().CreateTrack(FromText<TrackParameters>("id: 31 size: 32"),
                                     out.trackParameters);
     },
     "trackParameters { id: 61 size: 62 commandId: 63 }", "trackParameters { }"},
    {"TrackStorage_GetOngoingCommands", "", "commandIds { ids: 89 }",
     "storage.GetOngoingCommands()",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().GetOngoingCommands(out.ids); },
     "ids { ids: 89 }", "ids { }"},
    {"TrackStorage_SetTrackProperties",
     R"(trackId: 11 properties { items { key: "name" value: "\000x" } })", "",
     R"(storage.SetTrackProperties(11, { items { key: "name" value: "\000x" } }))",
     [](Stubs& stubs, Outputs&) {
         stubs.Storage().SetTrackProperties(
             11, FromText<PropertyList>(R"(items { key: "name" value: "\000x" })"));
     },
     "", ""},
    {"TrackStorage_ListTracks", "", "list { trackIds: 91 trackIds: 92 }", "storage.ListTracks()",
     [](Stubs& stubs, Outputs& out) { stubs.Storage().ListTracks(out.trackList); },
     "trackList { trackIds: 91 trackIds: 92 }", "trackList { }"},
    {"TrackReader_Constructor", "trackId: 11", "object_handle: 1",
     "readerFactory.CreateTrackReader(11)", [](Stubs& stubs, Outputs&) { stubs.MakeReader(11); },
     "", ""},
    {"TrackReader_NextTimePoint", "object_handle: 1 timecode { nanoseconds: 4 }",
     "nextTimePoint { nanoseconds: 93 } result: true", "reader.NextTimePoint({ nanoseconds: 4 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.reader->NextTimePoint(FromText<TimePoint>("nanoseconds: 4"), out.timePoint,
                                     out.flag);
     },
     "timePoint { nanoseconds: 93 } flag: true", "timePoint { } flag: false"},
    {"TrackReader_GetChunk",
     R"(object_handle: 1 timecode { nanoseconds: 4 } keys { keys: "image" keys: )"
     R"("sound" })",
     R"(chunk { timecode { nanoseconds: 95 } duration { nanoseconds: 96 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377b" } } } result: true)",
     R"(reader.GetChunk({ nanoseconds: 4 }, { keys: "image" keys: "sound" }))",
     [](Stubs& stubs, Outputs& out) {
         stubs.reader->GetChunk(FromText<TimePoint>("nanoseconds: 4"),
                                FromText<KeyList>(R"(keys: "image" keys: "sound")"), out.chunk,
                                out.flag);
     },
     R"(chunk { timecode { nanoseconds: 95 } duration { nanoseconds: 96 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377b" } } } flag: true)",
     "chunk { } flag: false"},
    {"TrackReader_GetTrackId", "object_handle: 1", "result: 55", "reader.GetTrackId()",
     [](Stubs& stubs, Outputs& out) { stubs.reader->GetTrackId(out.number); }, "number: 55",
     "number: 0"},
    {"TrackReader_PreviousTimePoint", "object_handle: 1 timecode { nanoseconds: 4 }",
     "previousTimePoint { nanoseconds: 94 } result: true",
     "reader.PreviousTimePoint({ nanoseconds: 4 })",
     [](Stubs& stubs, Outputs& out) {
         stubs.reader->PreviousTimePoint(FromText<TimePoint>("nanoseconds: 4"), out.timePoint,
                                         out.flag);
     },
     "timePoint { nanoseconds: 94 } flag: true", "timePoint { } flag: false"},
    {"TrackReader_GetPreviousChunk",
     R"(object_handle: 1 timecode { nanoseconds: 4 } keys { keys: "image" keys: )"
     R"("sound" })",
     R"(chunk { timecode { nanoseconds: 95 } duration { nanoseconds: 96 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377b" } } } result: true)",
     R"(reader.GetPreviousChunk({ nanoseconds: 4 }, { keys: "image" keys: "sound" }))",
     [](Stubs& stubs, Outputs& out) {
         stubs.reader->GetPreviousChunk(FromText<TimePoint>("nanoseconds: 4"),
                                        FromText<KeyList>(R"(keys: "image" keys: "sound")"),
                                        out.chunk, out.flag);
     },
     R"(chunk { timecode { nanoseconds: 95 } duration { nanoseconds: 96 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377b" } } } flag: true)",
     "chunk { } flag: false"},
    {"TrackReader_GetNextChunk",
     R"(object_handle: 1 timecode { nanoseconds: 4 } keys { keys: "image" keys: )"
     R"("sound" })",
     R"(chunk { timecode { nanoseconds: 95 } duration { nanoseconds: 96 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377b" } } } result: true)",
     R"(reader.GetNextChunk({ nanoseconds: 4 }, { keys: "image" keys: "sound" }))",
     [](Stubs& stubs, Outputs& out) {
         stubs.reader->GetNextChunk(FromText<TimePoint>("nanoseconds: 4"),
                                    FromText<KeyList>(R"(keys: "image" keys: "sound")"), out.chunk,
                                    out.flag);
     },
     R"(chunk { timecode { nanoseconds: 95 } duration { nanoseconds: 96 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377b" } } } flag: true)",
     "chunk { } flag: false"},
    {"TrackReader_Wait", "object_handle: 1 timecode { nanoseconds: 4 } timeout: -14",
     "result: true", "reader.Wait({ nanoseconds: 4 }, -14)",
     [](Stubs& stubs, Outputs& out) {
         stubs.reader->Wait(FromText<TimePoint>("nanoseconds: 4"), -14, out.flag);
     },
     "flag: true", "flag: false"},
    {"TrackReader_Destructor", "object_handle: 1", "", "reader.delete()",
     [](Stubs& stubs, Outputs&) { stubs.reader->DestroyOnServer(); }, "", ""},
    {"TrackWriter_Constructor", "trackId: 11", "object_handle: 2",
     "writerFactory.CreateTrackWriter(11)", [](Stubs& stubs, Outputs&) { stubs.MakeWriter(11); },
     "", ""},
    {"TrackWriter_Append",
     R"(object_handle: 2 chunk { timecode { nanoseconds: 6 } duration { )"
     R"(nanoseconds: 7 } properties { items { key: "codec" value: "jp\000eg" } } )"
     R"(data { items { key: "image" value: "\000\377a" } } })",
     "",
     R"(writer.Append({ timecode { nanoseconds: 6 } duration { nanoseconds: 7 } )"
     R"(properties { items { key: "codec" value: "jp\000eg" } } data { items { )"
     R"(key: "image" value: "\000\377a" } } }))",
     [](Stubs& stubs, Outputs&) {
         stubs.writer->Append(FromText<Chunk>(
             R"(timecode { nanoseconds: 6 } duration { nanoseconds: 7 } properties { )"
             R"(items { key: "codec" value: "jp\000eg" } } data { items { key: "image" )"
             R"(value: "\000\377a" } })"));
     },
     "", ""},
    {"TrackWriter_GetTrackId", "object_handle: 2", "result: 56", "writer.GetTrackId()",
     [](Stubs& stubs, Outputs& out) { stubs.writer->GetTrackId(out.number); }, "number: 56",
     "number: 0"},
    {"TrackWriter_Destructor", "object_handle: 2", "", "writer.delete()",
     [](Stubs& stubs, Outputs&) { stubs.writer->DestroyOnServer(); }, "", ""},
};

}  // namespace

Outputs::Outputs(bool flag)
    : flag(flag),
      chunk(FromText<Chunk>(
          R"(timecode { nanoseconds: 4242 } data { items { key: "x" value: "y" } })")),
      commandInfo(FromText<Protocol::CommandInfo>("type: CANCELED progression: 4242")),
      ids(FromText<Ids>("ids: 4242 ids: 4243 ids: 4244")),
      moreIds(FromText<Ids>("ids: 4245 ids: 4246 ids: 4247")),
      propertyList(FromText<PropertyList>(R"(items { key: "x" value: "y" })")),
      protectionInfos(FromText<Protocol::ProtectionInfos>("infos { handle: 4242 } infos { }")),
      timePoint(FromText<TimePoint>("nanoseconds: 4242")),
      trackInfos(FromText<Protocol::TrackInfos>("infos { trackId: 4242 } infos { }")),
      trackList(FromText<Protocol::TrackList>("trackIds: 4242")),
      trackParameters(FromText<TrackParameters>("id: 4242")),
      workerInfos(FromText<Protocol::WorkerInfos>("infos { workerId: 4242 } infos { }")),
      flagBefore(flag) {}

std::string Outputs::Changes() const {
    const Outputs before(flagBefore);
    std::string changes;
    Compare(changes, "chunk", before.chunk, chunk);
    Compare(changes, "commandInfo", before.commandInfo, commandInfo);
    Compare(changes, "ids", before.ids, ids);
    Compare(changes, "moreIds", before.moreIds, moreIds);
    Compare(changes, "propertyList", before.propertyList, propertyList);
    Compare(changes, "protectionInfos", before.protectionInfos, protectionInfos);
    Compare(changes, "timePoint", before.timePoint, timePoint);
    Compare(changes, "trackInfos", before.trackInfos, trackInfos);
    Compare(changes, "trackList", before.trackList, trackList);
    Compare(changes, "trackParameters", before.trackParameters, trackParameters);
    Compare(changes, "workerInfos", before.workerInfos, workerInfos);
    if (number != before.number) {
        changes += "number: " + std::to_string(number) + " ";
    }
    if (flag != before.flag) {
        changes += flag ? "flag: true " : "flag: false ";
    }
    return changes.substr(0, changes.find_last_not_of(' ') + 1);
}

Request RequestOf(const OperationRow& row) {
    return FromText<Request>("operation: OPERATION_" + std::string(row.name) + " " +
                             Part(row.name, row.request));
}

Response ResponseOf(const OperationRow& row) {
    return FromText<Response>("is_success: true " + Part(row.name, row.response));
}

std::span<const OperationRow> OperationTable() {
    return rows;
}

}  // namespace BrantelStorageApi
