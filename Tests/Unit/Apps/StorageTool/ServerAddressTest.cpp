#include <gtest/gtest.h>

#include <StorageTool/ExitCodes.h>
#include <StorageTool/ServerAddress.h>

#include <string>

namespace Brantel::Tool {
namespace {

TEST(ServerAddressTest, AUnixSocketIsAPath) {
    EXPECT_EQ(ServerAddress::Parse("unix:/tmp/a:1").path, "/tmp/a:1");
    EXPECT_EQ(ServerAddress::Parse("unix:relative").path, "relative");
}

TEST(ServerAddressTest, ATcpAddressIsAHostAndAPort) {
    const ServerAddress name = ServerAddress::Parse("tcp:store.example:65535");
    EXPECT_EQ(name.host, "store.example");
    EXPECT_EQ(name.port, 65535);
    EXPECT_EQ(name.path, "");
    EXPECT_EQ(ServerAddress::Parse("tcp:[::1]:4711").host, "::1");
}

TEST(ServerAddressTest, OthersAreRefused) {
    for (const char* const text :
         {"", "unix:", "tcp:", "tcp::1", "tcp:host", "tcp:host:", "tcp:host:0", "tcp:host:65536",
          "tcp:host:x", "tcp:::1:5", "host:5", "tcp:h:5x"}) {
        EXPECT_THROW(ServerAddress::Parse(text), Misuse) << text;
    }
}

TEST(ServerAddressTest, TheDefaultIsTheSocketThatTheServerTakes) {
    EXPECT_EQ(ServerAddress::Default(true, "").path, "/run/brantel/storage.sock");
    EXPECT_EQ(ServerAddress::Default(true, "/run/user/5").path, "/run/brantel/storage.sock");
    EXPECT_EQ(ServerAddress::Default(false, "/run/user/5").path,
              "/run/user/5/brantel/storage.sock");
    EXPECT_THROW(ServerAddress::Default(false, ""), Misuse);
}

TEST(ServerAddressTest, TheOptionComesFirstThenTheVariable) {
    EXPECT_EQ(ServerAddress::Choose("unix:a", "unix:b").path, "a");
    EXPECT_EQ(ServerAddress::Choose("", "unix:b").path, "b");
}

}  // namespace
}  // namespace Brantel::Tool
