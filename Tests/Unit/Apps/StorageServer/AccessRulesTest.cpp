#include <gtest/gtest.h>

#include <StorageServer/AccessRules.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

using Brantel::Server::AccessRules;
using Brantel::Server::Role;
using Brantel::Services::PeerAddress;

class AccessRulesTest : public testing::Test {
  protected:
    static constexpr std::int64_t own = 500;

    Role RoleOf(std::int64_t user, std::int64_t group) const {
        PeerAddress peer;
        peer.kind = PeerAddress::Kind::Unix;
        peer.user = user;
        peer.group = group;
        return rules.RoleOf(peer, own);
    }
    std::string RefusalOf(const std::string& text) {
        try {
            rules.Allow(text);
            return "none";
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
    }

    AccessRules rules;
};

TEST_F(AccessRulesTest, RootAndTheServersUserAreAdmin) {
    EXPECT_EQ(RoleOf(0, 0), Role::Admin);
    EXPECT_EQ(RoleOf(own, own), Role::Admin);
}

TEST_F(AccessRulesTest, OthersHaveNoRoleUntilTheyAreGivenOne) {
    EXPECT_EQ(RoleOf(1000, 1000), Role::None);
    rules.Allow("user:1000=editor");
    EXPECT_EQ(RoleOf(1000, 1000), Role::Editor);
    EXPECT_EQ(RoleOf(1001, 1000), Role::None);
}

TEST_F(AccessRulesTest, TheHigherRoleOfUserAndGroupHolds) {
    rules.Allow("user:1000=reader");
    rules.Allow("group:2000=writer");
    EXPECT_EQ(RoleOf(1000, 2000), Role::Writer);
    EXPECT_EQ(RoleOf(1000, 3000), Role::Reader);
    EXPECT_EQ(RoleOf(1001, 2000), Role::Writer);
}

TEST_F(AccessRulesTest, NamesStandForNumbers) {
    rules.Allow("user:nobody=admin");
    EXPECT_EQ(RoleOf(65534, 1), Role::Admin);
    rules.Allow("group:daemon=reader");
    EXPECT_EQ(RoleOf(1000, 1), Role::Reader);
}

TEST_F(AccessRulesTest, AnUnknownUserOfTheSystemHasNoRole) {
    EXPECT_EQ(RoleOf(-1, -1), Role::None);
}

TEST_F(AccessRulesTest, EverybodyOverTcpHasOneRole) {
    PeerAddress peer;
    peer.kind = PeerAddress::Kind::Tcp;
    EXPECT_EQ(rules.RoleOf(peer, own), Role::Reader);
    rules.overTcp = Role::Writer;
    EXPECT_EQ(rules.RoleOf(peer, own), Role::Writer);
}

TEST_F(AccessRulesTest, WhatCannotBeReadIsRefused) {
    EXPECT_EQ(RefusalOf("nobody=admin"),
              "Access nobody=admin: it is neither user:NAME=ROLE nor group:NAME=ROLE");
    EXPECT_EQ(RefusalOf("user:nobody"),
              "Access user:nobody: it is neither user:NAME=ROLE nor group:NAME=ROLE");
    EXPECT_EQ(RefusalOf("user:=admin"), "Access user:=admin: the name is missing");
    EXPECT_EQ(RefusalOf("user:nobody=king"),
              "Access user:nobody=king: \"king\" is no role; none, reader, writer, editor and "
              "admin are");
    EXPECT_EQ(RefusalOf("user:no such user=admin"),
              "Access user:no such user=admin: there is no user no such user");
    EXPECT_EQ(RefusalOf("group:no such group=admin"),
              "Access group:no such group=admin: there is no group no such group");
}

}  // namespace
