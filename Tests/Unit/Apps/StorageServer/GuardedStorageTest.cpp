#include "Support/RecordingObjects.h"

#include <gtest/gtest.h>

#include <StorageServer/GuardedReader.h>
#include <StorageServer/GuardedStorage.h>
#include <StorageServer/GuardedWriter.h>

#include <array>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Brantel::Server::ClientSession;
using Brantel::Server::GuardedReaderFactory;
using Brantel::Server::GuardedStorage;
using Brantel::Server::GuardedWriterFactory;
using Brantel::Server::NameOf;
using Brantel::Server::Role;
using BrantelStorageApi::Journal;

constexpr std::array roles{Role::None, Role::Reader, Role::Writer, Role::Editor, Role::Admin};

struct Operation {
    std::string name;
    Role needed;
    std::function<void(GuardedStorage&)> call;
};

class GuardedStorageTest : public testing::Test {
  protected:
    static constexpr long id = 7;

    std::shared_ptr<ClientSession> SessionOf(Role role) {
        return std::make_shared<ClientSession>(5, "somebody", role, limits, refusals, observers);
    }
    // What the call throws; empty when it does not.
    static std::string RefusalOf(const std::function<void()>& call) {
        try {
            call();
            return {};
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }
    static std::string Denied(const std::string& operation, Role needed) {
        return "Permission denied: " + operation + " needs role " + std::string(NameOf(needed));
    }

    std::vector<Operation> Questions() {
        return {
            {"GetTrackProperties", Role::Reader,
             [&](GuardedStorage& s) { s.GetTrackProperties(id, properties); }},
            {"GetNumberOfChunks", Role::Reader,
             [&](GuardedStorage& s) { s.GetNumberOfChunks(id, time, time, number); }},
            {"GetTrackSize", Role::Reader, [&](GuardedStorage& s) { s.GetTrackSize(id, number); }},
            {"GetTrackInfos", Role::Reader,
             [&](GuardedStorage& s) { s.GetTrackInfos(ids, trackInfos); }},
            {"GetActiveWorkers", Role::Reader,
             [&](GuardedStorage& s) { s.GetActiveWorkers(ids, ids); }},
            {"GetCommandInfo", Role::Reader,
             [&](GuardedStorage& s) { s.GetCommandInfo(id, command); }},
            {"GetRemainingSpace", Role::Reader,
             [&](GuardedStorage& s) { s.GetRemainingSpace(number); }},
            {"GetBeginningOfTrack", Role::Reader,
             [&](GuardedStorage& s) { s.GetBeginningOfTrack(id, time); }},
            {"GetAccumulatedDuration", Role::Reader,
             [&](GuardedStorage& s) { s.GetAccumulatedDuration(id, time, time, time); }},
            {"GetWorkerInfos", Role::Reader,
             [&](GuardedStorage& s) { s.GetWorkerInfos(ids, workerInfos); }},
            {"GetEndOfTrack", Role::Reader, [&](GuardedStorage& s) { s.GetEndOfTrack(id, time); }},
            {"ListProtections", Role::Reader,
             [&](GuardedStorage& s) { s.ListProtections(protections); }},
            {"GetOngoingCommands", Role::Reader,
             [&](GuardedStorage& s) { s.GetOngoingCommands(ids); }},
            {"ListTracks", Role::Reader, [&](GuardedStorage& s) { s.ListTracks(tracks); }},
        };
    }
    std::vector<Operation> Changes() {
        return {
            {"SetTrackProperties", Role::Editor,
             [&](GuardedStorage& s) { s.SetTrackProperties(id, properties); }},
            {"RemoveTrackProperties", Role::Editor,
             [&](GuardedStorage& s) { s.RemoveTrackProperties(id, properties); }},
            {"Protect", Role::Editor,
             [&](GuardedStorage& s) { s.Protect(id, time, time, number); }},
            {"Unprotect", Role::Editor, [&](GuardedStorage& s) { s.Unprotect(id); }},
            {"CreateTrack", Role::Admin,
             [&](GuardedStorage& s) { s.CreateTrack(parameters, parameters); }},
            {"GrowTrack", Role::Admin,
             [&](GuardedStorage& s) { s.GrowTrack(parameters, parameters); }},
            {"ClearTrack", Role::Admin, [&](GuardedStorage& s) { s.ClearTrack(id); }},
            {"DeleteTrack", Role::Admin, [&](GuardedStorage& s) { s.DeleteTrack(id, parameters); }},
        };
    }
    // Each role may do it or not, and what it may not never reaches the storage.
    void ExpectGuarded(const Operation& operation) {
        for (const Role role : roles) {
            Journal journal;
            GuardedStorage guarded(std::make_unique<BrantelStorageApi::RecordingStorage>(journal),
                                   SessionOf(role));
            const std::string refusal = RefusalOf([&] { operation.call(guarded); });
            if (role < operation.needed) {
                EXPECT_EQ(refusal, Denied(operation.name, operation.needed));
                EXPECT_TRUE(journal.Calls().empty());
            } else {
                EXPECT_EQ(refusal, "") << NameOf(role);
                ASSERT_EQ(journal.Calls().size(), 1U) << operation.name;
                EXPECT_EQ(journal.Calls().front().find("storage." + operation.name + "("), 0U);
            }
        }
    }

    Brantel::Server::ServerLimits limits;
    Brantel::Server::RefusalCounters refusals;
    ClientSession::Observers observers;
    long number = 0;
    Protocol::TimePoint time;
    Protocol::Ids ids;
    Protocol::PropertyList properties;
    Protocol::TrackParameters parameters;
    Protocol::TrackInfos trackInfos;
    Protocol::WorkerInfos workerInfos;
    Protocol::CommandInfo command;
    Protocol::ProtectionInfos protections;
    Protocol::TrackList tracks;
};

TEST_F(GuardedStorageTest, WhoReadsMayAskEverything) {
    for (const Operation& operation : Questions()) {
        ExpectGuarded(operation);
    }
}

TEST_F(GuardedStorageTest, ChangesNeedTheirRoles) {
    for (const Operation& operation : Changes()) {
        ExpectGuarded(operation);
    }
}

TEST_F(GuardedStorageTest, ReadersAreMadeForThoseWhoRead) {
    for (const Role role : roles) {
        Journal journal;
        GuardedReaderFactory factory(
            std::make_unique<BrantelStorageApi::RecordingReaderFactory>(journal), SessionOf(role));
        std::unique_ptr<BrantelStorageApi::ITrackReader> reader;
        const std::string refusal = RefusalOf([&] { reader.reset(factory.CreateTrackReader(id)); });
        EXPECT_EQ(refusal, role < Role::Reader ? Denied("OpenTrackReader", Role::Reader) : "");
        EXPECT_EQ(reader == nullptr, role < Role::Reader);
    }
}

TEST_F(GuardedStorageTest, WritersAreMadeForThoseWhoWrite) {
    for (const Role role : roles) {
        Journal journal;
        GuardedWriterFactory factory(
            std::make_unique<BrantelStorageApi::RecordingWriterFactory>(journal), SessionOf(role));
        std::unique_ptr<BrantelStorageApi::ITrackWriter> writer;
        const std::string refusal = RefusalOf([&] { writer.reset(factory.CreateTrackWriter(id)); });
        EXPECT_EQ(refusal, role < Role::Writer ? Denied("OpenTrackWriter", Role::Writer) : "");
        EXPECT_EQ(writer == nullptr, role < Role::Writer);
    }
}

}  // namespace
