// Every operation on tracks in every situation: one row says what it asks and what comes of it.
#include "Support/FacadeConnection.h"

#include <libProtocolX/StorageClientX.h>
#include <libServices/IServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tests::FacadePeer;
using Time::TimePoint;

std::string Show(long number) {
    return std::to_string(number);
}

std::string Show(const TimePoint& timePoint) {
    return Show(timePoint.ToNanoseconds());
}

std::string Show(const std::string& text) {
    return text;
}

std::string Show(const std::pair<long, long>& pair) {
    return Show(pair.first) + ":" + Show(pair.second);
}

std::string Show(const std::pair<const std::string, std::string>& pair) {
    return pair.first + "=" + pair.second;
}

template <typename... Fields>
std::string Record(const Fields&... fields) {
    std::string text;
    ((text += (text.empty() ? "" : "/") + Show(fields)), ...);
    return text;
}

std::string Show(const StorageClientX::TrackParameters& it) {
    return Record(it.id, it.size, it.commandId);
}

std::string Show(const StorageClientX::TrackInfo& it) {
    return Record(it.trackId, it.tpIn, it.tpOut, it.size, it.capacity);
}

std::string Show(const StorageClientX::ProtectionInfos& it) {
    return Record(it.handle, it.trackId, it.tcIn, it.tcOut);
}

std::string Show(const StorageClientX::WorkerInfo& it) {
    return Record(static_cast<long>(it.type), it.workerId, it.connectionId, it.throughput,
                  it.trackId, it.clientIpV4Address);
}

std::string Show(const StorageClientX::CommandInfo& it) {
    return Record(static_cast<long>(it.type), it.progression);
}

template <typename List>
std::string ShowAll(const List& list) {
    std::string text;
    for (const auto& item : list) {
        text += "[" + Show(item) + "]";
    }
    return text;
}

TimePoint At(long nanoseconds) {
    return TimePoint::Nanoseconds(nanoseconds);
}

struct Row {
    const char* name;
    std::string (*call)(StorageClientX& client);
    const char* request;       // what is sent
    const char* answer;        // the fields of the response's part
    const char* result;        // what comes of that answer
    const char* notConnected;  // what is returned without a connection
    const char* failed;        // what is returned when the connection answers false
    const char* nothing;       // what comes of a success without a part
};

const std::vector<Row> rows = {
    {"CreateTrack",
     [](StorageClientX& c) {
         return Show(c.CreateTrack({-2, 1000, 77}));
     },
     "infoIn { id: 18446744073709551614 size: 1000 }",
     "infoOut { id: 3 size: 18446744073709551615 commandId: 5 }", "3/-1/5", "0/0/0", "0/0/0",
     "0/0/0"},
    {"GrowTrack",
     [](StorageClientX& c) {
         return Show(c.GrowTrack({2, 1000, 77}));
     },
     "infoIn { id: 2 size: 1000 }", "infoOut { id: 3 size: 4 commandId: 5 }", "3/4/5", "0/0/0",
     "0/0/0", "0/0/0"},
    {"DeleteTrack", [](StorageClientX& c) { return Show(c.DeleteTrack(-7)); }, "trackId: -7",
     "infoOut { id: 3 size: 4 commandId: 5 }", "3/4/5", "0/0/0", "0/0/0", "0/0/0"},
    {"ClearTrack", [](StorageClientX& c) { return c.ClearTrack(7), std::string("done"); },
     "trackId: 7", "", "done", "done", "done", "done"},
    {"GetTrackSize", [](StorageClientX& c) { return Show(c.GetTrackSize(7)); }, "trackId: 7",
     "trackSize: 99", "99", "-1", "0", "0"},
    {"GetRemainingSpace", [](StorageClientX& c) { return Show(c.GetRemainingSpace()); }, "",
     "remainingSpace: 99", "99", "-1", "-1", "0"},
    {"ListTracks", [](StorageClientX& c) { return ShowAll(c.ListTracks()); }, "",
     "list { trackIds: 9 trackIds: 18446744073709551615 trackIds: 7 }", "[9][-1][7]", "", "", ""},
    {"ListProtections", [](StorageClientX& c) { return ShowAll(c.ListProtections()); }, "",
     "protectionInfos { infos { handle: 1 trackId: 2 tcIn { nanoseconds: 3 } tcOut { "
     "nanoseconds: 4 } } infos { } }",
     "[1/2/3/4][0/0/0/0]", "", "", ""},
    {"GetBeginningOfTrack", [](StorageClientX& c) { return Show(c.GetBeginningOfTrack(7)); },
     "trackId: 7", "timecode { nanoseconds: 18446744073709551615 }", "-1", "-1", "0", "0"},
    {"GetEndOfTrack", [](StorageClientX& c) { return Show(c.GetEndOfTrack(7)); }, "trackId: 7",
     "timecode { nanoseconds: 12 }", "12", "-1", "0", "0"},
    {"Protect", [](StorageClientX& c) { return Show(c.Protect(7, At(10), At(4))); },
     "trackId: 7 timecode { nanoseconds: 10 } duration { nanoseconds: 18446744073709551610 }",
     "protectionId: 99", "99", "-1", "-1", "0"},
    {"Unprotect", [](StorageClientX& c) { return c.Unprotect(99), std::string("done"); },
     "protectionId: 99", "", "done", "done", "done", "done"},
    {"GetNumberOfChunks",
     [](StorageClientX& c) { return Show(c.GetNumberOfChunks(7, At(10), At(14))); },
     "trackId: 7 in { nanoseconds: 10 } out { nanoseconds: 14 }", "nbChunks: 25", "25", "0", "0",
     "0"},
    {"GetAccumulatedDuration",
     [](StorageClientX& c) { return Show(c.GetAccumulatedDuration(7, At(10), At(14))); },
     "trackId: 7 in { nanoseconds: 10 } out { nanoseconds: 14 }", "duration { nanoseconds: 4 }",
     "4", "0", "0", "0"},
    {"SetTrackProperties",
     [](StorageClientX& c) {
         return c.SetTrackProperties(7, {{"b", "2"}, {"a", ""}}), std::string("done");
     },
     R"(trackId: 7 properties { items { key: "a" value: "" } items { key: "b" value: "2" } })", "",
     "done", "done", "done", "done"},
    {"GetTrackProperties", [](StorageClientX& c) { return ShowAll(c.GetTrackProperties(7)); },
     "trackId: 7",
     R"(properties { items { key: "b" value: "2" } items { key: "a" value: "1" } items { )"
     R"(key: "b" value: "3" } })",
     "[a=1][b=3]", "", "", ""},
    {"RemoveTrackProperties",
     [](StorageClientX& c) {
         return c.RemoveTrackProperties(7, {{"a", "1"}}), std::string("done");
     },
     R"(trackId: 7 properties { items { key: "a" value: "" } })", "", "done", "done", "done",
     "done"},
    {"GetOngoingCommands", [](StorageClientX& c) { return ShowAll(c.GetOngoingCommands()); }, "",
     "commandIds { ids: 2 ids: 1 }", "[2][1]", "", "", ""},
    {"GetCommandInfo", [](StorageClientX& c) { return Show(c.GetCommandInfo(99)); },
     "commandId: 99", "commandInfo { type: QUEUED progression: 50 }", "3/50", "0/0", "0/0", "0/0"},
    {"GetActiveWorkers", [](StorageClientX& c) { return ShowAll(c.GetWorkerIds()); }, "",
     "workerIds { ids: 1 ids: 2 } trackIds { ids: 11 ids: 12 }", "[1:11][2:12]", "", "", ""},
    {"GetWorkerInfos",
     [](StorageClientX& c) {
         return ShowAll(c.GetWorkerInfos({2, 1}));
     },
     "workerIds { ids: 2 ids: 1 }",
     "workerInfos { infos { type: WRITER workerId: 1 trackId: 2 connectionId: 3 throughput: 4 "
     "clientIpV4Address: '127.0.0.1' } infos { } }",
     "[2/1/3/4/2/127.0.0.1][0/0/0/0/0/]", "", "", ""},
    {"GetTrackInfos",
     [](StorageClientX& c) {
         return ShowAll(c.GetTrackInfos({2, -1}));
     },
     "trackIds { ids: 2 ids: 18446744073709551615 }",
     "trackInfos { infos { trackId: 1 tpIn { nanoseconds: 2 } tpOut { nanoseconds: 3 } size: 4 "
     "capacity: 5 } infos { } }",
     "[1/2/3/4/5][0/0/0/0/0]", "", "", ""},
};

class StorageClientXTracksTest : public testing::TestWithParam<Row> {
  protected:
    StorageClientXTracksTest() { client.ConnectToSlave(peer.Connect()); }

    std::string Call() { return GetParam().call(client); }

    static std::string Part(const std::string& fields) {
        return std::string("TrackStorage_") + GetParam().name +
               (fields.empty() ? " { }" : " { " + fields + " }");
    }

    FacadePeer peer;
    StorageClientX client;
};

TEST_P(StorageClientXTracksTest, AsksOnceAndConvertsTheAnswer) {
    peer.WillAnswer(Part(GetParam().answer));
    EXPECT_EQ(Call(), GetParam().result);
    EXPECT_THAT(peer.journal, ElementsAre(Part(GetParam().request)));
}

TEST_P(StorageClientXTracksTest, NotConnectedAsksNobody) {
    client.Disconnect();
    peer.journal.clear();
    EXPECT_EQ(Call(), GetParam().notConnected);
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_P(StorageClientXTracksTest, AFailedSendLeavesTheNeutralValue) {
    peer.WillFailToSend();
    EXPECT_EQ(Call(), GetParam().failed);
    EXPECT_EQ(peer.journal.size(), 1U);
}

TEST_P(StorageClientXTracksTest, AFailedReceiveLeavesTheNeutralValue) {
    peer.WillFailToReceive();
    EXPECT_EQ(Call(), GetParam().failed);
    EXPECT_EQ(peer.journal.size(), 1U);
}

TEST_P(StorageClientXTracksTest, ASuccessWithoutAPartIsReadAsDefaults) {
    EXPECT_EQ(Call(), GetParam().nothing);
}

TEST_P(StorageClientXTracksTest, WhatTheServerRefusesIsThrownWithItsText) {
    peer.WillRefuse("no such track");
    try {
        Call();
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Exception from server: no such track");
    }
    EXPECT_EQ(Call(), GetParam().nothing);
}

TEST_P(StorageClientXTracksTest, ALostConnectionIsThrown) {
    peer.WillThrowOnReceive(SocketDisconnected("gone"));
    EXPECT_THROW(Call(), SocketDisconnected);
}

INSTANTIATE_TEST_SUITE_P(Every, StorageClientXTracksTest, testing::ValuesIn(rows),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace Brantel::ProtocolX
