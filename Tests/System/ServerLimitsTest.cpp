// Every limit of the server, over both transports, with a client that wants more, and an honest one
// beside it that must not notice.

#include "Support/Frames.h"
#include "Support/HttpClient.h"
#include "Support/RawClient.h"
#include "Support/Refusal.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tests {
namespace {

using BrantelStorageApi::Request;
using BrantelStorageApi::Response;
using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using testing::HasSubstr;
using Time::TimePoint;

class ServerLimitsTest : public testing::TestWithParam<Transport> {
  protected:
    void Serve(std::vector<std::string> options = {}) {
        options.insert(options.end(), {"--http", "127.0.0.1:0"});
        server = std::make_unique<ServerProcess>(folder.File("storage.sock"), options);
        honest = Connect();
        track = CreateTrack(*honest, 64L << 20U);
    }
    std::unique_ptr<StorageClientX> Connect() const {
        return GetParam() == Transport::Unix ? server->ConnectOverUnix() : server->ConnectOverTcp();
    }
    RawClient Hostile() const { return {*server, GetParam()}; }

    // The honest client appends and reads as ever.
    void ExpectServed(const std::string& bytes = "a picture") {
        AppendChunk(*honest, track, ++last, bytes);
        EXPECT_EQ(ReadChunk(*honest, track, last), bytes);
    }
    bool IsLogged(const std::string& text) const {
        return Eventually(
            [&] { return server->Process().Errors().find(text) != std::string::npos; });
    }
    // How often the metrics say that this limit has refused something; -1: they don't.
    int Refused(const std::string& limit) const {
        const std::string port = "Health and metrics: http://127.0.0.1:";
        EXPECT_TRUE(IsLogged(port));
        const std::string errors = server->Process().Errors();
        const auto number = std::stoul(errors.substr(errors.find(port) + port.size()));
        const std::string metrics =
            HttpRequest(static_cast<unsigned short>(number), "/metrics").body;
        const std::string series = "brantel_refused_by_limit_total{limit=\"" + limit + "\"} ";
        const std::size_t found = metrics.find(series);
        return found == std::string::npos ? -1 : std::stoi(metrics.substr(found + series.size()));
    }
    // The most memory that the server has had at once.
    std::size_t HighestMemory() const {
        std::ifstream status("/proc/" + std::to_string(server->Process().Id()) + "/status");
        for (std::string word; status >> word;) {
            if (word == "VmHWM:") {
                std::size_t kibibytes = 0;
                status >> kibibytes;
                return kibibytes * 1024;
            }
        }
        return 0;
    }
    // Appends, as a message, with so many properties that have neither key nor value.
    static Request AppendOf(int properties) {
        Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackWriter_Append);
        auto& chunk = *request.mutable_trackwriter_append()->mutable_chunk();
        chunk.mutable_timecode()->set_nanoseconds(1);
        chunk.mutable_duration()->set_nanoseconds(1);
        request.mutable_trackwriter_append()->set_object_handle(1);
        for (int i = 0; i < properties; ++i) {
            auto* const item = chunk.mutable_properties()->add_items();
            item->set_key("");
            item->set_value("");
        }
        return request;
    }
    static Request InfosOf(int ids) {
        Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_GetTrackInfos);
        auto& list = *request.mutable_trackstorage_gettrackinfos()->mutable_trackids();
        for (int i = 0; i < ids; ++i) {
            list.add_ids(1);
        }
        return request;
    }

    // Asks for the last chunk many times: for more than any buffers hold when it is large.
    void AskForMuch(RawClient& client) const {
        Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackReader_GetChunk);
        auto& question = *request.mutable_trackreader_getchunk();
        question.set_object_handle(client.OpenReader(track));
        question.mutable_timecode()->set_nanoseconds(static_cast<std::uint64_t>(last));
        question.mutable_keys();
        for (int i = 0; i < 30; ++i) {
            client.Send(request);
        }
    }

    TemporaryFolder folder;
    std::unique_ptr<ServerProcess> server;
    std::unique_ptr<StorageClientX> honest;
    long track = 0;
    long last = 0;
};

INSTANTIATE_TEST_SUITE_P(Over, ServerLimitsTest, testing::Values(Transport::Unix, Transport::Tcp),
                         [](const auto& test) {
                             return test.param == Transport::Unix ? "Unix" : "Tcp";
                         });

// --- how much

TEST_P(ServerLimitsTest, AMessageOverTheLongestEndsItsConnectionAlone) {
    Serve({"--message-limit", "1MiB"});
    RawClient hostile = Hostile();
    hostile.Announce((1U << 20U) + 1, 0);
    EXPECT_TRUE(hostile.SeesTheEnd());
    EXPECT_TRUE(IsLogged("message of 1048577 bytes is over the limit of 1048576 bytes"));
    EXPECT_EQ(Refused("message-limit"), 1);
    ExpectServed();
}

TEST_P(ServerLimitsTest, AnnouncedBytesTakeNoMemoryBeforeTheyCome) {
    Serve({"--message-limit", "1GiB", "--bytes-in-flight", "1GiB"});
    const std::size_t before = HighestMemory();
    RawClient hostile = Hostile();
    hostile.Announce(1U << 30U, 1000);
    EXPECT_EQ(Hostile().AskForTracks(), "done");
    ExpectServed();
    EXPECT_LT(HighestMemory() - before, 64U << 20U);
}

TEST_P(ServerLimitsTest, OneConnectionMoreThanTheLimitIsClosed) {
    Serve({"--max-connections", "3"});
    RawClient second = Hostile();
    RawClient third = Hostile();
    EXPECT_EQ(second.AskForTracks() + third.AskForTracks(), "donedone");
    EXPECT_TRUE(Hostile().SeesTheEnd());
    EXPECT_TRUE(IsLogged("Already serving 3 connections, the limit"));
    EXPECT_EQ(Refused("max-connections"), 1);
    ExpectServed();
}

TEST_P(ServerLimitsTest, SoManyReadersAndWritersOfOneConnectionAreOpenAtOnce) {
    Serve({"--max-workers", "3"});
    const auto greedy = Connect();
    for (long reader = 0; reader < 3; ++reader) {
        greedy->GetTrackReader(track, reader);
    }
    EXPECT_EQ(RefusalOf([&] { greedy->GetTrackReader(track, 3); }),
              "Exception from server: 4 open readers and writers on one connection are over the "
              "limit of 3");
    EXPECT_EQ(Refused("max-workers"), 1);
    ExpectServed();
    greedy->CloseTrackReader(track, 0);
    EXPECT_EQ(RefusalOf([&] { greedy->GetTrackReader(track, 3); }), "nothing");
}

TEST_P(ServerLimitsTest, ByDefaultThereAre1024Workers) {
    Serve();
    RawClient greedy = Hostile();
    for (std::uint32_t reader = 1; reader <= 1024; ++reader) {
        ASSERT_EQ(greedy.OpenReader(track), reader);
    }
    EXPECT_EQ(greedy.OpenReader(track), 0U);
    ExpectServed();
}

TEST_P(ServerLimitsTest, SoManyIdsAreAskedForAtOnce) {
    Serve();
    RawClient greedy = Hostile();
    const Response answer = greedy.Ask(InfosOf(65'536));
    EXPECT_TRUE(answer.is_success()) << answer.exception();
    EXPECT_EQ(answer.trackstorage_gettrackinfos().trackinfos().infos_size(), 65'536);
    EXPECT_EQ(greedy.Ask(InfosOf(65'537)).exception(),
              "65537 ids in one request are over the limit of 65536");
    EXPECT_EQ(Refused("max-ids"), 1);
    EXPECT_EQ(greedy.AskForTracks(), "done");
}

// --- what is parsed

TEST_P(ServerLimitsTest, AMessageOfTooManyElementsIsRefusedAndItsClientGoesOn) {
    Serve();
    RawClient hostile = Hostile();
    const Request request = AppendOf(30'000);
    EXPECT_EQ(hostile.Ask(request).exception(),
              "Message of " + std::to_string(request.ByteSizeLong()) +
                  " bytes holds more elements than the limit of 65536");
    EXPECT_EQ(Refused("max-elements"), 1);
    EXPECT_EQ(hostile.AskForTracks(), "done");
    ExpectServed();
}

TEST_P(ServerLimitsTest, MillionsOfEmptyTextsCostNoMemory) {
    constexpr std::size_t size = 16U << 20U;
    constexpr std::size_t parsed = 100U << 20U;  // would be several times that
    Serve();
    const std::size_t before = HighestMemory();
    RawClient hostile = Hostile();
    std::string texts(size, '\0');
    for (std::size_t i = 0; i + 3 <= size; i += 3) {
        texts[i] = '\xA2';
        texts[i + 1] = '\x03';
    }
    hostile.Write(FrameOf(texts));
    EXPECT_THAT(hostile.Receive().exception(), HasSubstr("more elements than the limit"));
    EXPECT_LT(HighestMemory() - before, parsed);
    ExpectServed();
}

TEST_P(ServerLimitsTest, AMessageThatNestsTooDeepIsRefusedAndItsClientGoesOn) {
    Serve();
    RawClient hostile = Hostile();
    std::string groups;
    for (int depth = 0; depth < 9; ++depth) {
        groups = "\xA3\x06" + groups + "\xA4\x06";
    }
    hostile.Write(FrameOf("\x08\x24" + groups));
    EXPECT_EQ(hostile.Receive().exception(),
              "Message of 38 bytes nests deeper than the limit of 8");
    EXPECT_EQ(Refused("max-elements"), 1);
    EXPECT_EQ(hostile.AskForTracks(), "done");
}

TEST_P(ServerLimitsTest, AChunkWith20000PropertiesIsKept) {
    Serve();
    RawClient client = Hostile();
    Request request;
    request.set_operation(BrantelStorageApi::OPERATION_TrackWriter_Constructor);
    request.mutable_trackwriter_constructor()->set_trackid(track);
    client.Ask(request);
    request = AppendOf(20'000);
    int number = 0;
    for (auto& item : *request.mutable_trackwriter_append()
                           ->mutable_chunk()
                           ->mutable_properties()
                           ->mutable_items()) {
        item.set_key("property " + std::to_string(++number));
    }
    EXPECT_EQ(client.Ask(request).exception(), "");
    DataChunk found;
    ASSERT_TRUE(honest->GetTrackReader(track, 1)->GetChunk(found, TimePoint::Nanoseconds(1), {}));
    EXPECT_EQ(found.GetPropertyKeys().size(), 20'000U);
}

// --- how fast

TEST_P(ServerLimitsTest, AMessageThatDripsEndsItsConnectionAlone) {
    Serve({"--transfer-grace", "200"});
    RawClient hostile = Hostile();
    hostile.Announce(5000, 10);
    std::thread dripping([&hostile] {
        while (hostile.TryWrite("x")) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    ExpectServed();
    dripping.join();
    EXPECT_TRUE(IsLogged("Connection lost: slower than 65536 bytes a second after "));
    EXPECT_EQ(Refused("transfer-rate"), 1);
    ExpectServed();
}

TEST_P(ServerLimitsTest, AClientThatTakesNoAnswerLosesItsConnectionAlone) {
    Serve({"--transfer-grace", "200"});
    AppendChunk(*honest, track, ++last, std::string(900'000, 'a'));
    RawClient hostile = Hostile();
    AskForMuch(hostile);
    ExpectServed();
    EXPECT_TRUE(IsLogged("the other side takes less than 65536 bytes a second"));
    EXPECT_EQ(Refused("transfer-rate"), 1);
    ExpectServed();
}

TEST_P(ServerLimitsTest, ASilentClientIsNeverCut) {
    Serve({"--transfer-grace", "100"});
    RawClient silent = Hostile();
    EXPECT_EQ(silent.AskForTracks(), "done");
    RawClient dripping = Hostile();
    dripping.Announce(5000, 10);
    // Ten times the grace of the one that does not keep the pace, at least.
    EXPECT_TRUE(dripping.SeesTheEnd());
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(silent.AskForTracks(), "done");
}

// --- all together

TEST_P(ServerLimitsTest, ALargeMessageWaitsUntilThereIsRoom) {
    Serve({"--message-limit", "1MiB", "--bytes-in-flight", "1MiB", "--transfer-grace", "1000"});
    RawClient hostile = Hostile();
    hostile.Announce(1U << 20U, 100'000);
    // It has taken the room once it has been read: the socket holds less than that.
    EXPECT_EQ(Hostile().AskForTracks(), "done");
    auto waiting = std::async(std::launch::async, [this] {
        const auto client = Connect();
        AppendChunk(*client, track, 1, std::string(900'000, 'b'));
    });
    EXPECT_EQ(Hostile().AskForTracks(), "done");
    // The hostile one is cut, and the other has its turn.
    waiting.get();
    EXPECT_EQ(ReadChunk(*honest, track, 1), std::string(900'000, 'b'));
    EXPECT_TRUE(hostile.SeesTheEnd());
}

// Sends zeros a little faster than the lowest pace, until its connection is cut.
void Drip(RawClient& client) {
    while (client.TryWrite(std::string(4096, '\0'))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
}

TEST_P(ServerLimitsTest, TwoThatAnnounceAllThereIsAndDripKeepNothingFromOthers) {
    Serve();
    std::vector<RawClient> hostile;
    for (int i = 0; i < 2; ++i) {
        hostile.push_back(Hostile());
        hostile.back().Announce(256U << 20U, 100'000);
    }
    std::thread dripping([&hostile] { Drip(hostile.front()); });
    EXPECT_EQ(Hostile().AskForTracks(), "done");
    for (int i = 0; i < 20; ++i) {
        ExpectServed(std::string(1'000'000, 'a'));
    }
    EXPECT_EQ(server->Process().Errors().find("slower than"), std::string::npos);
    EXPECT_EQ(Refused("bytes-in-flight"), 0);
    server->Stop();
    dripping.join();
}

TEST_P(ServerLimitsTest, WhoKeepsRoomFromOthersAtTheLowestPaceLosesItSoon) {
    // All the room is one message's, which would take three minutes.
    Serve({"--message-limit", "16MiB", "--bytes-in-flight", "16MiB", "--transfer-grace", "2000"});
    RawClient hostile = Hostile();
    hostile.Announce(16U << 20U, 100'000);
    std::thread dripping([&hostile] { Drip(hostile); });
    EXPECT_EQ(Hostile().AskForTracks(), "done");
    ExpectServed(std::string(1'000'000, 'a'));
    dripping.join();
    EXPECT_TRUE(IsLogged("bytes a second while others wait for room after "));
    EXPECT_EQ(Refused("bytes-in-flight"), 1);
    EXPECT_EQ(Refused("transfer-rate"), 1);
}

TEST_P(ServerLimitsTest, AWaitKeepsNothingOfALargeRequestFromOthers) {
    Serve({"--message-limit", "1MiB", "--bytes-in-flight", "1MiB"});
    RawClient hostile = Hostile();
    Request wait;
    wait.set_operation(BrantelStorageApi::OPERATION_TrackReader_Wait);
    wait.mutable_trackreader_wait()->set_object_handle(hostile.OpenReader(track));
    wait.mutable_trackreader_wait()->mutable_timecode()->set_nanoseconds(1000);
    wait.mutable_trackreader_wait()->set_timeout(-1);
    auto& other = *wait.mutable_trackstorage_settrackproperties();
    other.set_trackid(1);
    auto& property = *other.mutable_properties()->add_items();
    property.set_key("a");
    property.set_value(std::string(900'000, 'a'));
    hostile.Send(wait);
    ExpectServed(std::string(900'000, 'b'));
    AppendChunk(*honest, track, 1001, "what it waits for");
    const Response answer = hostile.Receive();
    EXPECT_TRUE(answer.trackreader_wait().result()) << answer.exception();
}

TEST_P(ServerLimitsTest, AWaitEndsWithinASecondWhenItsClientHasGone) {
    Serve();
    Request wait;
    wait.set_operation(BrantelStorageApi::OPERATION_TrackReader_Wait);
    wait.mutable_trackreader_wait()->mutable_timecode()->set_nanoseconds(1000);
    wait.mutable_trackreader_wait()->set_timeout(-1);
    auto client = std::make_unique<RawClient>(Hostile());
    wait.mutable_trackreader_wait()->set_object_handle(client->OpenReader(track));
    ASSERT_EQ(honest->GetWorkerIds().size(), 1U);
    client->Send(wait);
    const auto start = std::chrono::steady_clock::now();
    client.reset();
    EXPECT_TRUE(Eventually([&] { return honest->GetWorkerIds().empty(); }));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_P(ServerLimitsTest, TheServerEndsInGoodOrderInTheMiddleOfEverything) {
    Serve({"--message-limit", "1MiB", "--bytes-in-flight", "1MiB"});
    AppendChunk(*honest, track, ++last, std::string(900'000, 'a'));
    RawClient half = Hostile();
    half.Announce(1U << 20U, 100'000);
    RawClient waitsForRoom = Hostile();
    waitsForRoom.Announce(1U << 20U, 10);
    RawClient takesNothing = Hostile();
    AskForMuch(takesNothing);
    RawClient idle = Hostile();
    EXPECT_EQ(idle.AskForTracks(), "done");
    EXPECT_EQ(server->Stop(), 0) << server->Process().Errors();
    EXPECT_TRUE(idle.SeesTheEnd());
}

}  // namespace
}  // namespace Brantel::Tests
