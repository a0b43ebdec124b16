#include "Support/RecordingObjects.h"
#include "Support/Refusal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/GuardedReader.h>
#include <StorageServer/GuardedStorage.h>
#include <StorageServer/GuardedWriter.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Brantel::Server::ClientSession;
using Brantel::Server::GuardedReaderFactory;
using Brantel::Server::GuardedStorage;
using Brantel::Server::GuardedWriterFactory;
using Brantel::Server::IOperationObserver;
using Brantel::Server::OperationRecord;
using Brantel::Server::RefusalCounters;
using Brantel::Server::Role;
using Brantel::Server::ServerLimits;
using Brantel::Tests::RefusalOf;
using BrantelStorageApi::ITrackReader;
using BrantelStorageApi::ITrackWriter;
using BrantelStorageApi::Journal;
using testing::ElementsAre;

// Keeps what it was told, as a line each: "Append writing done, track 7, 3 bytes".
class TellingObserver : public IOperationObserver {
  public:
    void OnOperation(const OperationRecord& record) noexcept override {
        static const std::vector<std::string> kinds = {"asking", "reading", "appending",
                                                       "changing"};
        static const std::vector<std::string> outcomes = {"done", "failed", "denied", "limited"};
        EXPECT_GE(record.duration.count(), 0);
        EXPECT_EQ(record.connectionId, 5U);
        EXPECT_EQ(record.peer, "somebody");
        lines.push_back(
            std::string(record.operation) + ", " + kinds.at(static_cast<std::size_t>(record.kind)) +
            ", " + outcomes.at(static_cast<std::size_t>(record.outcome)) + ", track " +
            std::to_string(record.trackId) + ", " + std::to_string(record.bytes) + " bytes" +
            (record.failure.empty() ? "" : ": ") + std::string(record.failure));
    }

    std::vector<std::string> lines;
};

class ClientSessionTest : public testing::Test {
  protected:
    static constexpr long id = 7;

    static ServerLimits FewAllowed() {
        ServerLimits limits;
        limits.workersPerConnection = 2;
        limits.idsPerRequest = 3;
        return limits;
    }
    void BeRole(Role role) {
        session = std::make_shared<ClientSession>(5, "somebody", role, limits, refusals, observers);
    }
    std::unique_ptr<GuardedStorage> MakeStorage() {
        return std::make_unique<GuardedStorage>(
            std::make_unique<BrantelStorageApi::RecordingStorage>(journal), session);
    }
    std::unique_ptr<ITrackReader> OpenReader() {
        GuardedReaderFactory factory(
            std::make_unique<BrantelStorageApi::RecordingReaderFactory>(journal), session);
        return std::unique_ptr<ITrackReader>(factory.CreateTrackReader(id));
    }
    std::unique_ptr<ITrackWriter> OpenWriter() {
        GuardedWriterFactory factory(
            std::make_unique<BrantelStorageApi::RecordingWriterFactory>(journal), session);
        return std::unique_ptr<ITrackWriter>(factory.CreateTrackWriter(id));
    }
    static Protocol::Ids Ids(int count) {
        Protocol::Ids ids;
        for (int i = 0; i < count; ++i) {
            ids.add_ids(static_cast<std::uint64_t>(i));
        }
        return ids;
    }

    Journal journal;
    const ServerLimits limits = FewAllowed();
    RefusalCounters refusals;
    TellingObserver observer;
    ClientSession::Observers observers{&observer};
    std::shared_ptr<ClientSession> session =
        std::make_shared<ClientSession>(5, "somebody", Role::Admin, limits, refusals, observers);
};

TEST_F(ClientSessionTest, EveryCallIsTold) {
    long size = 0;
    MakeStorage()->GetTrackSize(id, size);
    MakeStorage()->ClearTrack(id);
    EXPECT_THAT(observer.lines, ElementsAre("GetTrackSize, asking, done, track 7, 0 bytes",
                                            "ClearTrack, changing, done, track 7, 0 bytes"));
}

TEST_F(ClientSessionTest, AReadersLifeIsTold) {
    bool found = false;
    Protocol::TimePoint time;
    OpenReader()->Wait(time, 0, found);
    EXPECT_THAT(observer.lines, ElementsAre("OpenTrackReader, reading, done, track 7, 0 bytes",
                                            "Wait, reading, done, track 7, 0 bytes",
                                            "CloseTrackReader, reading, done, track 7, 0 bytes"));
}

TEST_F(ClientSessionTest, AnAppendIsToldWithItsPayload) {
    Protocol::Chunk chunk;
    auto* const property = chunk.mutable_properties()->add_items();
    property->set_key("key");
    property->set_value("ab");
    auto* const block = chunk.mutable_data()->add_items();
    block->set_key("key");
    block->set_value("cde");
    OpenWriter()->Append(chunk);
    EXPECT_EQ(observer.lines.at(1), "Append, appending, done, track 7, 5 bytes");
}

TEST_F(ClientSessionTest, TheTrackThatWasCreatedIsTold) {
    Protocol::TrackParameters wanted;
    Protocol::TrackParameters made;
    MakeStorage()->CreateTrack(wanted, made);
    EXPECT_EQ(observer.lines.at(0),
              "CreateTrack, changing, done, track " + std::to_string(made.id()) + ", 0 bytes");
}

TEST_F(ClientSessionTest, AFailureGoesThroughAndIsTold) {
    journal.FailWith([] { throw std::runtime_error("Track 7 does not exist"); });
    EXPECT_EQ(RefusalOf([this] { MakeStorage()->ClearTrack(id); }), "Track 7 does not exist");
    EXPECT_THAT(
        observer.lines,
        ElementsAre("ClearTrack, changing, failed, track 7, 0 bytes: Track 7 does not exist"));
}

TEST_F(ClientSessionTest, WhatIsDeniedIsTold) {
    BeRole(Role::Reader);
    EXPECT_EQ(RefusalOf([this] { OpenWriter(); }),
              "Permission denied: OpenTrackWriter needs role writer");
    EXPECT_THAT(observer.lines,
                ElementsAre("OpenTrackWriter, appending, denied, track 7, 0 bytes: "
                            "Permission denied: OpenTrackWriter needs role writer"));
}

TEST_F(ClientSessionTest, SoManyReadersAndWritersAreOpenAtOnce) {
    const auto reader = OpenReader();
    auto writer = OpenWriter();
    const std::string refusal =
        "3 open readers and writers on one connection are over the limit of 2";
    EXPECT_EQ(RefusalOf([this] { OpenReader(); }), refusal);
    EXPECT_EQ(RefusalOf([this] { OpenWriter(); }), refusal);
    EXPECT_EQ(refusals.workers, 2U);
    EXPECT_EQ(observer.lines.back(),
              "OpenTrackWriter, appending, limited, track 7, 0 bytes: " + refusal);
    writer.reset();
    EXPECT_EQ(RefusalOf([this] { OpenReader(); }), "nothing");
}

TEST_F(ClientSessionTest, AReaderThatCouldNotBeOpenedDoesNotCount) {
    journal.FailWith([] { throw std::runtime_error("Track 7 does not exist"); });
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(RefusalOf([this] { OpenReader(); }), "Track 7 does not exist");
    }
}

TEST_F(ClientSessionTest, SoManyIdsCanBeAskedForAtOnce) {
    Protocol::TrackInfos tracks;
    Protocol::WorkerInfos workers;
    const auto storage = MakeStorage();
    EXPECT_EQ(RefusalOf([&] { storage->GetTrackInfos(Ids(3), tracks); }), "nothing");
    const std::string refusal = "4 ids in one request are over the limit of 3";
    EXPECT_EQ(RefusalOf([&] { storage->GetTrackInfos(Ids(4), tracks); }), refusal);
    EXPECT_EQ(RefusalOf([&] { storage->GetWorkerInfos(Ids(4), workers); }), refusal);
    EXPECT_EQ(refusals.ids, 2U);
}

}  // namespace
