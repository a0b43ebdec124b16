#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/Monitor.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace Brantel::Server {
namespace {

using testing::HasSubstr;
using testing::Not;

class MonitorTest : public testing::Test {
  protected:
    static ServedStatus MakeServed() {
        ServedStatus served;
        served.addresses = {"unix:/run/storage.sock"};
        served.connections.active = 3;
        served.connections.inCrowd = 2;
        served.refusals = {{"max-connections", 2}};
        Tracks::TrackStatus& track = served.storage.tracks.emplace_back();
        track.id = 7;
        track.capacity = 1000;
        track.used = 400;
        track.held = 100;
        track.begin = 10;
        track.last = 90;
        track.end = 95;
        track.recycledChunks = 5;
        Tracks::WorkerStatus& reader = served.storage.workers.emplace_back();
        reader.id = 1;
        reader.track = 7;
        reader.connection = 12;
        reader.idle = std::chrono::milliseconds(1500);
        reader.position = 50;
        reader.lag = 2'500'000'000;
        Tracks::CommandStatus& command = served.storage.commands.emplace_back();
        command.id = 4;
        command.kind = Tracks::CommandStatus::Kind::Grow;
        command.isOngoing = true;
        command.capacity = 2000;
        command.percent = 40;
        command.percentPerSecond = 10;
        served.storage.commandCounts = {1, 1, 6, 2};
        served.storage.remainingSpace = 12345;
        served.storage.damagedChunks = 9;
        return served;
    }
    std::string Metrics() { return monitor.Answer("/metrics").body; }
    nlohmann::json Status() { return nlohmann::json::parse(monitor.Answer("/status").body); }

    Monitor monitor{"2.1.5"};
};

TEST_F(MonitorTest, ItLivesFromItsBeginning) {
    EXPECT_EQ(monitor.Answer("/livez").status, 200);
}

TEST_F(MonitorTest, ItIsReadyOnlyWhileClientsAreServed) {
    EXPECT_EQ(monitor.Answer("/readyz").status, 503);
    EXPECT_EQ(monitor.Answer("/readyz").body, "starting\n");
    monitor.SetPhase(Monitor::Phase::Ready);
    EXPECT_EQ(monitor.Answer("/readyz").status, 200);
    monitor.SetPhase(Monitor::Phase::Stopping);
    EXPECT_EQ(monitor.Answer("/readyz").status, 503);
    EXPECT_EQ(monitor.Answer("/readyz").body, "stopping\n");
    EXPECT_EQ(monitor.Answer("/livez").status, 200);
}

TEST_F(MonitorTest, OtherPathsAreNotFound) {
    EXPECT_EQ(monitor.Answer("/").status, 404);
    EXPECT_EQ(monitor.Answer("/metrics/").status, 404);
}

TEST_F(MonitorTest, TheProcessIsToldBeforeThereIsAStore) {
    EXPECT_THAT(Metrics(), HasSubstr("brantel_build_info{version=\"2.1.5\"} 1"));
    EXPECT_THAT(Metrics(), HasSubstr("brantel_ready 0"));
    EXPECT_THAT(Metrics(), HasSubstr("brantel_process_resident_memory_bytes "));
    EXPECT_THAT(Metrics(), Not(HasSubstr("brantel_tracks")));
    EXPECT_EQ(Status().at("state"), "starting");
    EXPECT_GT(Status().at("process").at("open_descriptors"), 0);
    EXPECT_FALSE(Status().contains("tracks"));
}

TEST_F(MonitorTest, AStoreIsToldForAsLongAsItIsShown) {
    {
        const Monitor::Shown shown = monitor.Show(&MakeServed);
        EXPECT_THAT(Metrics(), HasSubstr("brantel_track_used_bytes{track=\"7\"} 400"));
    }
    EXPECT_THAT(Metrics(), Not(HasSubstr("brantel_track")));
}

TEST_F(MonitorTest, TheNumbersOfATrackAreInBaseUnits) {
    const Monitor::Shown shown = monitor.Show(&MakeServed);
    const std::string metrics = Metrics();
    for (const std::string line :
         {"brantel_track_capacity_bytes{track=\"7\"} 1000\n",
          "brantel_track_protected_bytes{track=\"7\"} 100\n",
          "brantel_track_remaining_bytes{track=\"7\"} 600\n",
          "brantel_track_recycled_chunks_total{track=\"7\"} 5\n",
          "brantel_track_reader_lag_seconds{track=\"7\"} 2.5\n", "brantel_connections 3\n",
          "brantel_connections_in_crowd 2\n",
          "brantel_refused_by_limit_total{limit=\"max-connections\"} 2\n",
          "brantel_workers{type=\"reader\"} 1\n", "brantel_commands{state=\"ongoing\"} 1\n",
          "brantel_commands_ended_total{state=\"canceled\"} 2\n",
          "brantel_space_remaining_bytes 12345\n", "brantel_damaged_chunks_total 9\n"}) {
        EXPECT_THAT(metrics, HasSubstr("\n" + line));
    }
}

TEST_F(MonitorTest, TheBucketsOfAHistogramAddUp) {
    OperationRecord record;
    record.operation = "GetChunk";
    for (const auto duration : {std::chrono::microseconds(20), std::chrono::microseconds(900)}) {
        record.duration = duration;
        monitor.GetOperations().OnOperation(record);
    }
    const std::string metrics = Metrics();
    const std::string name = "brantel_operation_duration_seconds";
    const std::string labels = "operation=\"GetChunk\",outcome=\"done\"";
    EXPECT_THAT(metrics, HasSubstr(name + "_count{" + labels + "} 2\n"));
    EXPECT_THAT(metrics, HasSubstr(name + "_bucket{" + labels + ",le=\"+Inf\"} 2\n"));
    EXPECT_THAT(metrics, HasSubstr("le=\"0.001\"} 2\n"));
    EXPECT_THAT(metrics, HasSubstr(name + "_sum{" + labels + "} 0.00092"));
}

TEST_F(MonitorTest, TheStatusListsTracksWorkersAndCommands) {
    monitor.SetPhase(Monitor::Phase::Ready);
    const Monitor::Shown shown = monitor.Show(&MakeServed);
    const nlohmann::json status = Status();
    EXPECT_EQ(status.at("state"), "ready");
    EXPECT_EQ(status.at("addresses").at(0), "unix:/run/storage.sock");
    EXPECT_EQ(status.at("connections").at("active"), 3);
    const nlohmann::json track = status.at("tracks").at(0);
    EXPECT_EQ(track.at("id"), 7);
    EXPECT_EQ(track.at("end_nanoseconds"), 95);
    EXPECT_EQ(track.at("durability"), "always");
    const nlohmann::json worker = status.at("workers").at(0);
    EXPECT_EQ(worker.at("type"), "reader");
    EXPECT_EQ(worker.at("lag_seconds"), 2.5);
    EXPECT_EQ(worker.at("idle_seconds"), 1.5);
    const nlohmann::json command = status.at("commands").at(0);
    EXPECT_EQ(command.at("state"), "ongoing");
    EXPECT_EQ(command.at("percent"), 40);
    EXPECT_EQ(command.at("bytes_per_second"), 200);
}

TEST_F(MonitorTest, WhatIsNotThereIsNull) {
    const Monitor::Shown shown = monitor.Show([] {
        ServedStatus served = MakeServed();
        served.storage.tracks[0].begin = -1;
        served.storage.workers[0].lag = -1;
        served.storage.remainingSpace.reset();
        return served;
    });
    const nlohmann::json status = Status();
    EXPECT_TRUE(status.at("tracks").at(0).at("begin_nanoseconds").is_null());
    EXPECT_TRUE(status.at("workers").at(0).at("lag_seconds").is_null());
    EXPECT_TRUE(status.at("space").at("remaining_bytes").is_null());
    EXPECT_THAT(Metrics(), Not(HasSubstr("\nbrantel_space_remaining_bytes ")));
}

TEST_F(MonitorTest, ATextThatIsNoUtf8StaysReadable) {
    const Monitor::Shown shown = monitor.Show([] {
        ServedStatus served = MakeServed();
        served.storage.tracks[0].failure = "no \xff way";
        return served;
    });
    EXPECT_EQ(Status().at("tracks").at(0).at("failure"), "no \xEF\xBF\xBD way");
}

}  // namespace
}  // namespace Brantel::Server
