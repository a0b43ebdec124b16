// What a server tells over HTTP: health, metrics and status.

#include "HeldFile.h"
#include "Support/HttpClient.h"
#include "Support/ProcessState.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"
#include "Support/Waiting.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class ServerHttpTest : public testing::Test {
  protected:
    void Start(std::vector<std::string> options = {}) {
        options.insert(options.end(), {"--http", "127.0.0.1:0"});
        server = std::make_unique<ServerProcess>(folder.File("storage.sock"), options);
        // What it logs comes from a thread of its own.
        EXPECT_TRUE(
            Eventually([&] { return (httpPort = PortIn(server->Process().Errors())) != 0; }));
    }
    // 0: it does not say one.
    static unsigned short PortIn(const std::string& errors) {
        std::smatch found;
        const std::regex line("Health and metrics: http://127\\.0\\.0\\.1:([0-9]+)/");
        return std::regex_search(errors, found, line)
                   ? static_cast<unsigned short>(std::stoul(found[1]))
                   : static_cast<unsigned short>(0);
    }
    HttpAnswer Get(const std::string& path) const { return HttpRequest(httpPort, path); }
    // The value of a line of /metrics; -1: there is none.
    double Metric(const std::string& series) const {
        std::istringstream lines("\n" + Get("/metrics").body);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(series + " ")) {
                return std::stod(line.substr(series.size() + 1));
            }
        }
        return -1;
    }
    // Everything that there are numbers for has happened once.
    void UseEverything() {
        client = server->ConnectOverUnix();
        track = CreateTrack(*client);
        AppendChunk(*client, track, 10, "bytes");
        EXPECT_EQ(ReadChunk(*client, track, 10), "bytes");
    }

    TemporaryFolder folder;
    std::unique_ptr<ServerProcess> server;
    std::unique_ptr<StorageClientX> client;
    long track = 0;
    unsigned short httpPort = 0;
};

TEST_F(ServerHttpTest, AServerThatServesIsAliveAndReady) {
    Start();
    EXPECT_EQ(Get("/livez").status, 200);
    EXPECT_TRUE(Eventually([&] { return Get("/readyz").status == 200; }));
}

TEST_F(ServerHttpTest, WhileTheStoreIsOpenedTheServerIsAliveAndNotReady) {
    const std::vector<std::string> onFolder = ServerProcess::OnFolder(folder.File("data"));
    Start(onFolder);
    ASSERT_EQ(server->Stop(), 0);
    auto held = std::make_unique<HeldFile>(folder.File("data/FORMAT"));
    if (!held->IsHeld()) {
        GTEST_SKIP() << "SKIPPED: the file system of the temporary folder has no leases";
    }
    std::vector<std::string> command = {ServerProcess::Program(), "--http", "127.0.0.1:0",
                                        "--listen", "unix:" + folder.File("second.sock")};
    command.insert(command.end(), onFolder.begin(), onFolder.end());
    ProgramRun second(command);
    ASSERT_TRUE(Eventually([&] { return (httpPort = PortIn(second.Errors())) != 0; }));
    EXPECT_EQ(Get("/livez").status, 200);
    EXPECT_EQ(Get("/readyz").status, 503);
    EXPECT_EQ(Get("/readyz").body, "starting\n");
    EXPECT_EQ(Metric("brantel_ready"), 0);
    EXPECT_EQ(Metric("brantel_connections"), -1);
    held.reset();
    EXPECT_TRUE(Eventually([&] { return Get("/readyz").status == 200; }));
    EXPECT_EQ(Metric("brantel_ready"), 1);
}

TEST_F(ServerHttpTest, ThePortIsGoneWithTheServer) {
    Start();
    ASSERT_EQ(server->Stop(), 0);
    EXPECT_THROW(HttpSocket{httpPort}, std::system_error);
}

TEST_F(ServerHttpTest, ItCanBeOff) {
    server = std::make_unique<ServerProcess>(folder.File("storage.sock"),
                                             std::vector<std::string>{"--http", "off"});
    ASSERT_EQ(server->Stop(), 0);
    EXPECT_EQ(PortIn(server->Process().Errors()), 0);
}

TEST_F(ServerHttpTest, APortThatIsAskedForAndTakenIsAnError) {
    const PlainTcpListener taken("127.0.0.1");
    const std::string address = "127.0.0.1:" + std::to_string(taken.Port());
    ProgramRun second({ServerProcess::Program(), "--engine", "memory", "--listen",
                       "unix:" + folder.File("b.sock"), "--http", address});
    EXPECT_EQ(second.Wait(), 1);
    EXPECT_THAT(second.Errors(),
                HasSubstr("Could not listen on 127.0.0.1 port " + std::to_string(taken.Port()) +
                          " for HTTP: Address already in use"));
}

TEST_F(ServerHttpTest, WhatIsNoAddressIsMisuse) {
    ProgramRun wrong({ServerProcess::Program(), "--engine", "memory", "--http", "nonsense"});
    EXPECT_EQ(wrong.Wait(), 2);
    EXPECT_THAT(wrong.Errors(), HasSubstr("nonsense"));
}

TEST_F(ServerHttpTest, MetricsFollowWhatClientsDo) {
    Start();
    UseEverything();
    const std::string label = "{track=\"" + std::to_string(track) + "\"}";
    EXPECT_EQ(Metric("brantel_ready"), 1);
    EXPECT_EQ(Metric("brantel_connections"), 1);
    EXPECT_EQ(Metric("brantel_tracks{state=\"ready\"}"), 1);
    EXPECT_EQ(Metric("brantel_workers{type=\"reader\"}"), 1);
    EXPECT_EQ(Metric("brantel_track_capacity_bytes" + label), 16 << 20);
    EXPECT_EQ(Metric("brantel_track_chunks" + label), 1);
    EXPECT_EQ(Metric("brantel_track_appended_bytes_total" + label), 5);
    EXPECT_EQ(Metric("brantel_commands_ended_total{state=\"finished\"}"), 1);
    client.reset();
    EXPECT_TRUE(Eventually([&] { return Metric("brantel_connections") == 0; }));
    EXPECT_EQ(Metric("brantel_workers{type=\"reader\"}"), 0);
}

TEST_F(ServerHttpTest, EachCallIsCountedByItsNameAndItsOutcome) {
    Start();
    UseEverything();
    const std::string name = "brantel_operation_duration_seconds_count";
    EXPECT_EQ(Metric(name + "{operation=\"Append\",outcome=\"done\"}"), 1);
    EXPECT_EQ(Metric(name + "{operation=\"CreateTrack\",outcome=\"done\"}"), 1);
    EXPECT_EQ(Metric(name + "{operation=\"Append\",outcome=\"failed\"}"), -1);
    EXPECT_ANY_THROW(AppendChunk(*client, track, 10, "again"));
    EXPECT_EQ(Metric(name + "{operation=\"Append\",outcome=\"failed\"}"), 1);
    EXPECT_EQ(Metric("brantel_payload_bytes_total{direction=\"in\"}"), 5);
    EXPECT_EQ(Metric("brantel_payload_bytes_total{direction=\"out\"}"), 5);
}

TEST_F(ServerHttpTest, WhatARoleRefusesIsCounted) {
    Start({"--tcp-role", "reader"});
    EXPECT_ANY_THROW(CreateTrack(*server->ConnectOverTcp()));
    EXPECT_EQ(Metric("brantel_operations_denied_total"), 1);
}

TEST_F(ServerHttpTest, FlushesAreCountedWhereThereIsAMedium) {
    Start(ServerProcess::OnFolder(folder.File("data")));
    UseEverything();
    const double before = Metric("brantel_flush_duration_seconds_count");
    AppendChunk(*client, track, 20, "more");
    EXPECT_EQ(Metric("brantel_flush_duration_seconds_count"), before + 1);
    EXPECT_GE(Metric("brantel_flush_group_writes_sum"), before + 1);
    EXPECT_EQ(Metric("brantel_flush_failures_total"), 0);
}

TEST_F(ServerHttpTest, TheProcessIsSeenAsTheSystemSeesIt) {
    Start();
    UseEverything();
    const std::size_t seen =
        CountEntries("/proc/" + std::to_string(server->Process().Id()) + "/fd");
    // One more for the connection on which it is asked.
    EXPECT_TRUE(Eventually([&] {
        return Metric("brantel_process_open_descriptors") == static_cast<double>(seen + 1);
    }));
    EXPECT_GT(Metric("brantel_process_resident_memory_bytes"), 1 << 20);
    EXPECT_GE(Metric("brantel_process_threads"), 2);
}

TEST_F(ServerHttpTest, TheStatusIsJson) {
    Start();
    UseEverything();
    const HttpAnswer answer = Get("/status");
    EXPECT_EQ(answer.status, 200);
    EXPECT_THAT(answer.head, HasSubstr("Content-Type: application/json"));
    EXPECT_THAT(answer.body, HasSubstr("\"state\": \"ready\""));
    EXPECT_THAT(answer.body, HasSubstr("\"max-connections\": 4096"));
    EXPECT_THAT(answer.body, HasSubstr("unix:" + server->SocketPath()));
}

TEST_F(ServerHttpTest, PrometheusTakesTheMetricsAsGood) {
    if (access("/usr/bin/promtool", X_OK) != 0) {
        GTEST_SKIP() << "SKIPPED: promtool is not here (package prometheus)";
    }
    Start(ServerProcess::OnFolder(folder.File("data")));
    UseEverything();
    std::ofstream(folder.File("metrics")) << Get("/metrics").body;
    ProgramRun check(
        {"/bin/sh", "-c", "exec /usr/bin/promtool check metrics < " + folder.File("metrics")});
    EXPECT_EQ(check.Wait(), 0) << check.Output() << check.Errors();
    EXPECT_EQ(check.Output() + check.Errors(), "");
}

// The names of metrics in a text, without what a histogram adds to its own.
std::set<std::string> NamesIn(const std::string& text) {
    std::set<std::string> names;
    const std::regex name("brantel_[a-z0-9_]+");
    for (std::sregex_iterator found(text.begin(), text.end(), name), end; found != end; ++found) {
        names.insert(std::regex_replace(found->str(), std::regex("_(bucket|sum|count)$"), ""));
    }
    return names;
}

std::string ContentsOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(ServerHttpTest, AlertsAndDashboardAskForMetricsThatThereAre) {
    Start(ServerProcess::OnFolder(folder.File("data")));
    UseEverything();
    const std::set<std::string> exported = NamesIn(Get("/metrics").body);
    for (const std::string name : {"alerts.yml", "dashboard.json"}) {
        const std::set<std::string> asked = NamesIn(ContentsOf(BRANTEL_MONITORING "/" + name));
        EXPECT_GT(asked.size(), 10U) << name;
        for (const std::string& metric : asked) {
            EXPECT_TRUE(exported.contains(metric)) << name << ": " << metric;
        }
    }
}

TEST_F(ServerHttpTest, PrometheusTakesTheAlertsAsGood) {
    if (access("/usr/bin/promtool", X_OK) != 0) {
        GTEST_SKIP() << "SKIPPED: promtool is not here (package prometheus)";
    }
    ProgramRun check({"/usr/bin/promtool", "check", "rules", BRANTEL_MONITORING "/alerts.yml"});
    EXPECT_EQ(check.Wait(), 0) << check.Output() << check.Errors();
    ProgramRun tried({"/usr/bin/promtool", "test", "rules", BRANTEL_ALERTS_TEST});
    EXPECT_EQ(tried.Wait(), 0) << tried.Output() << tried.Errors();
}

TEST_F(ServerHttpTest, EachAlertIsExplained) {
    const std::string document = ContentsOf(BRANTEL_OPERATIONS);
    const std::string alerts = ContentsOf(BRANTEL_MONITORING "/alerts.yml");
    const std::regex alert("alert: (\\w+)");
    int count = 0;
    for (std::sregex_iterator found(alerts.begin(), alerts.end(), alert), end; found != end;
         ++found, ++count) {
        EXPECT_THAT(document, HasSubstr("| `" + (*found)[1].str() + "` |"));
    }
    EXPECT_GT(count, 10);
}

TEST_F(ServerHttpTest, EveryMetricIsDescribedAndWhatIsDescribedIsThere) {
    Start(ServerProcess::OnFolder(folder.File("data")));
    UseEverything();
    std::string exported;
    std::istringstream lines(Get("/metrics").body);
    for (std::string line; std::getline(lines, line);) {
        exported += line.starts_with("# TYPE ") ? line + "\n" : std::string();
    }
    const std::string document = ContentsOf(BRANTEL_OPERATIONS);
    ASSERT_GT(NamesIn(exported).size(), 30U);
    EXPECT_EQ(NamesIn(document), NamesIn(exported));
}

TEST_F(ServerHttpTest, AHostileClientOfHttpHarmsNobody) {
    Start();
    UseEverything();
    std::vector<std::unique_ptr<HttpSocket>> silent;
    for (int count = 0; count < 100; ++count) {
        silent.push_back(std::make_unique<HttpSocket>(httpPort));
        silent.back()->Send("GET /metrics HTTP/1.1\r\nX-Slow: ");
    }
    AppendChunk(*client, track, 20, "more");
    EXPECT_EQ(ReadChunk(*server->ConnectOverTcp(), track, 20), "more");
    silent.clear();
    EXPECT_TRUE(Eventually([&] { return Get("/livez").status == 200; }));
}

}  // namespace
}  // namespace Brantel::Tests
