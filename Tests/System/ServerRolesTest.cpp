// Who may do what: clients over TCP, and clients of other users over a Unix-domain socket.

#include "Support/ChildProcess.h"
#include "Support/OperationTable.h"
#include "Support/RawClient.h"
#include "Support/Refusal.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/IStorageWriterX.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;
using testing::Not;
using Time::TimePoint;

constexpr uid_t otherUser = 65534;
constexpr gid_t otherGroup = 65533;

std::string Denied(const std::string& operation, const std::string& role) {
    return "Exception from server: Permission denied: " + operation + " needs role " + role;
}

class ServerRolesTest : public testing::Test {
  protected:
    std::unique_ptr<ServerProcess> Serve(std::vector<std::string> options) {
        options.insert(options.end(), {"--socket-mode", "666"});
        // Everybody may look for the socket.
        std::filesystem::permissions(folder.Path(), static_cast<std::filesystem::perms>(0755));
        return std::make_unique<ServerProcess>(socketPath, options);
    }
    // Whether a client of another user gets just these answers.
    bool OtherUserSees(const std::function<bool(StorageClientX&)>& look) {
        ChildProcess child([&](int) {
            if (setgid(otherGroup) != 0 || setuid(otherUser) != 0) {
                return EXIT_FAILURE;
            }
            StorageClientX client;
            return client.ConnectToSlave(socketPath) && look(client) ? EXIT_SUCCESS : EXIT_FAILURE;
        });
        return child.Wait() == EXIT_SUCCESS;
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
};

TEST_F(ServerRolesTest, OverTcpOneReadsUnlessMoreIsAllowed) {
    const auto server = Serve({"--tcp-role", "reader"});
    const long track = CreateTrack(*server->ConnectOverUnix());
    const auto client = server->ConnectOverTcp();
    EXPECT_EQ(ReadChunk(*client, track, 1), "not found");
    EXPECT_EQ(client->ListTracks().size(), 1U);
    EXPECT_EQ(RefusalOf([&] { AppendChunk(*client, track, 1, "a"); }),
              Denied("OpenTrackWriter", "writer"));
    EXPECT_EQ(RefusalOf([&] {
                  client->SetTrackProperties(track, {{"a", "b"}});
              }),
              Denied("SetTrackProperties", "editor"));
    EXPECT_EQ(RefusalOf([&] { client->ClearTrack(track); }), Denied("ClearTrack", "admin"));
    EXPECT_EQ(RefusalOf([&] { CreateTrack(*client); }), Denied("CreateTrack", "admin"));
}

// The role that an operation needs, and its name in a refusal; no name: it needs a reader or a
// writer, which only those have who may open one.
struct Need {
    std::string name;
    std::string role;
};

Need NeedOf(const std::string& operation) {
    static const std::set<std::string> editors = {"SetTrackProperties", "RemoveTrackProperties",
                                                  "Protect", "Unprotect"};
    static const std::set<std::string> admins = {"CreateTrack", "GrowTrack", "ClearTrack",
                                                 "DeleteTrack"};
    const std::string name = operation.substr(operation.find('_') + 1);
    if (operation.starts_with("TrackStorage_")) {
        return {name, admins.contains(name)    ? "admin"
                      : editors.contains(name) ? "editor"
                                               : "reader"};
    }
    if (name != "Constructor") {
        return {};
    }
    return operation.starts_with("TrackWriter_") ? Need{"OpenTrackWriter", "writer"}
                                                 : Need{"OpenTrackReader", "reader"};
}

TEST_F(ServerRolesTest, EveryOperationNeedsItsRole) {
    const std::vector<std::string> roles = {"none", "reader", "writer", "editor", "admin"};
    for (std::size_t role = 0; role < roles.size(); ++role) {
        const auto server = Serve({"--tcp-role", roles[role]});
        RawClient client(*server, Transport::Tcp);
        int seen = 0;
        for (const BrantelStorageApi::OperationRow& row : BrantelStorageApi::OperationTable()) {
            const Need need = NeedOf(row.name);
            const auto needed = std::find(roles.begin(), roles.end(), need.role) - roles.begin();
            const std::string answer = client.Ask(RequestOf(row)).exception();
            if (!need.name.empty() && static_cast<std::ptrdiff_t>(role) < needed) {
                EXPECT_EQ("Exception from server: " + answer, Denied(need.name, need.role));
            } else {
                EXPECT_THAT(answer, Not(HasSubstr("Permission denied"))) << row.name;
            }
            ++seen;
        }
        EXPECT_EQ(seen, 35);
    }
}

TEST_F(ServerRolesTest, TheServersOwnUserMayDoEverythingOverASocket) {
    const auto server = Serve({"--tcp-role", "none"});
    const auto client = server->ConnectOverUnix();
    const long track = CreateTrack(*client);
    AppendChunk(*client, track, 1, "a");
    client->ClearTrack(track);
    EXPECT_EQ(RefusalOf([&] { server->ConnectOverTcp()->ListTracks(); }),
              Denied("ListTracks", "reader"));
}

TEST_F(ServerRolesTest, AnotherUserMayDoNothingUntilHeIsGivenARole) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "SKIPPED: only root can connect as somebody else";
    }
    const auto server = Serve({});
    EXPECT_TRUE(OtherUserSees([](StorageClientX& client) {
        return RefusalOf([&] { client.ListTracks(); }) == Denied("ListTracks", "reader") &&
               RefusalOf([&] { client.GetTrackReader(1, 1); }) ==
                   Denied("OpenTrackReader", "reader");
    }));
}

TEST_F(ServerRolesTest, AnotherUserHasTheRoleThatHeOrHisGroupWasGiven) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "SKIPPED: only root can connect as somebody else";
    }
    for (const std::string rule : {"user:65534=writer", "group:65533=writer"}) {
        const auto server = Serve({"--allow", rule});
        const long track = CreateTrack(*server->ConnectOverUnix());
        EXPECT_TRUE(OtherUserSees([track](StorageClientX& client) {
            AppendChunk(client, track, 1, "from another user");
            return ReadChunk(client, track, 1) == "from another user" &&
                   RefusalOf([&] { client.DeleteTrack(track); }) == Denied("DeleteTrack", "admin");
        })) << rule;
    }
}

}  // namespace
}  // namespace Brantel::Tests
