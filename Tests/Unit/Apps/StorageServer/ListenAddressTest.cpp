#include <gtest/gtest.h>

#include <StorageServer/ListenAddress.h>

#include <stdexcept>
#include <string>

namespace {

using Brantel::Server::ListenAddress;

std::string RefusalOf(const std::string& text) {
    try {
        ListenAddress::Parse(text);
        return "accepted";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(ListenAddressTest, AUnixAddressIsAPath) {
    const ListenAddress address = ListenAddress::Parse("unix:/run/a:b.sock");
    EXPECT_EQ(address.kind, ListenAddress::Kind::Unix);
    EXPECT_EQ(address.path, "/run/a:b.sock");
}

TEST(ListenAddressTest, ATcpAddressIsAHostAndAPort) {
    const ListenAddress address = ListenAddress::Parse("tcp:storage.example:4711");
    EXPECT_EQ(address.kind, ListenAddress::Kind::Tcp);
    EXPECT_EQ(address.host, "storage.example");
    EXPECT_EQ(address.port, 4711);
}

TEST(ListenAddressTest, AnIpV6AddressStandsInBrackets) {
    const ListenAddress address = ListenAddress::Parse("tcp:[2001:db8::7]:65535");
    EXPECT_EQ(address.host, "2001:db8::7");
    EXPECT_EQ(address.port, 65535);
}

TEST(ListenAddressTest, AStarIsEveryAddressAndPortZeroAFreeOne) {
    const ListenAddress address = ListenAddress::Parse("tcp:*:0");
    EXPECT_EQ(address.host, "");
    EXPECT_EQ(address.port, 0);
}

TEST(ListenAddressTest, AnUnknownKindIsRefused) {
    EXPECT_EQ(RefusalOf("http:x:1"), "Address http:x:1: it begins with neither unix: nor tcp:");
    EXPECT_EQ(RefusalOf(""), "Address : it begins with neither unix: nor tcp:");
}

TEST(ListenAddressTest, AMissingPathHostOrPortIsRefused) {
    EXPECT_EQ(RefusalOf("unix:"), "Address unix:: the path is missing");
    EXPECT_EQ(
        RefusalOf("tcp::4711"),
        "Address tcp::4711: the host is missing (* stands for every address of this machine)");
    EXPECT_EQ(RefusalOf("tcp:localhost"),
              "Address tcp:localhost: the port is missing, as in tcp:localhost:4711");
    EXPECT_EQ(RefusalOf("tcp:[::1]"),
              "Address tcp:[::1]: the port is missing, as in tcp:localhost:4711");
    EXPECT_EQ(RefusalOf("tcp:"), "Address tcp:: the port is missing, as in tcp:localhost:4711");
}

TEST(ListenAddressTest, APortOverTheLimitIsRefused) {
    EXPECT_EQ(RefusalOf("tcp:localhost:65536"),
              "Address tcp:localhost:65536: port 65536 is over the limit of 65535");
    EXPECT_EQ(RefusalOf("tcp:localhost:99999999999"),
              "Address tcp:localhost:99999999999: port 99999999999 is over the limit of 65535");
}

TEST(ListenAddressTest, APortThatIsNoNumberIsRefused) {
    for (const std::string port : {"", "http", "-1", "+1", "0x10", "80 ", " 80"}) {
        EXPECT_EQ(RefusalOf("tcp:localhost:" + port),
                  "Address tcp:localhost:" + port + ": \"" + port +
                      "\" is no port, which is a number from 0 to 65535");
    }
}

TEST(ListenAddressTest, AnIpV6AddressWithoutItsBracketsIsRefused) {
    EXPECT_EQ(RefusalOf("tcp:::1:80"),
              "Address tcp:::1:80: an IPv6 address stands in brackets, as in tcp:[::1]:4711");
    EXPECT_EQ(RefusalOf("tcp:[::1:80"),
              "Address tcp:[::1:80: an address in brackets, as in tcp:[::1]:4711, does not end");
    EXPECT_EQ(RefusalOf("tcp:[]:80"),
              "Address tcp:[]:80: an address in brackets, as in tcp:[::1]:4711, does not end");
}

TEST(ListenAddressTest, ItsTextIsReadAsTheSame) {
    for (const std::string text : {"unix:/run/a.sock", "tcp:*:0", "tcp:[::1]:80", "tcp:here:1"}) {
        EXPECT_EQ(ListenAddress::Parse(text).Text(), text);
    }
}

}  // namespace
