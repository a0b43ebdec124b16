#include <gtest/gtest.h>

#include <StorageServer/Surroundings.h>
#include <unistd.h>

#include <optional>

namespace {

using Brantel::Server::Surroundings;

TEST(SurroundingsTest, TheProcessHasItsEnvironment) {
    ASSERT_EQ(setenv("BRANTEL_SURROUNDINGS", "a=b", 1), 0);
    const Surroundings found = Surroundings::OfProcess();
    EXPECT_EQ(found.Find("BRANTEL_SURROUNDINGS"), "a=b");
    EXPECT_EQ(found.isRoot, geteuid() == 0);
    EXPECT_NE(found.user, "");
    EXPECT_EQ(found.settingsFile, "/etc/brantel/storage.toml");
}

TEST(SurroundingsTest, AnEmptyVariableIsNone) {
    Surroundings surroundings;
    surroundings.environment["EMPTY"] = "";
    EXPECT_EQ(surroundings.Find("EMPTY"), std::nullopt);
    EXPECT_EQ(surroundings.Find("MISSING"), std::nullopt);
}

TEST(SurroundingsTest, TheTracksLieWhereTheSystemKeepsData) {
    Surroundings surroundings;
    EXPECT_EQ(surroundings.DataFolder(), "");
    surroundings.environment["HOME"] = "/users/eve";
    EXPECT_EQ(surroundings.DataFolder(), "/users/eve/.local/share/brantel");
    surroundings.environment["XDG_DATA_HOME"] = "/data";
    EXPECT_EQ(surroundings.DataFolder(), "/data/brantel");
    surroundings.isRoot = true;
    EXPECT_EQ(surroundings.DataFolder(), "/var/lib/brantel");
}

}  // namespace
