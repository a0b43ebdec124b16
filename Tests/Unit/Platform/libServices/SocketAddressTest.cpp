#include "Support/TestSockets.h"

#include <libServices/SocketAddress.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace Brantel::Services {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

SocketAddress Numeric(const std::string& host, unsigned short port) {
    return SocketAddress::Resolve(host, port, false).at(0);
}

std::string PathError(const std::string& path) {
    try {
        SocketAddress::OfUnixPath(path);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

TEST(SocketAddressTest, AnIpV4AddressIsShownWithItsPort) {
    const SocketAddress address = Numeric("192.0.2.7", 4711);
    EXPECT_EQ(AF_INET, address.Family());
    EXPECT_EQ("192.0.2.7", address.Host());
    EXPECT_EQ("192.0.2.7", address.IpV4());
    EXPECT_EQ(4711, address.Port());
    EXPECT_EQ("192.0.2.7:4711", address.Text());
}

TEST(SocketAddressTest, AnIpV6AddressIsShownInBracketsAndHasNoIpV4Text) {
    const SocketAddress address = Numeric("2001:db8::7", 65535);
    EXPECT_EQ(AF_INET6, address.Family());
    EXPECT_EQ("2001:db8::7", address.Host());
    EXPECT_EQ("", address.IpV4());
    EXPECT_EQ("[2001:db8::7]:65535", address.Text());
}

TEST(SocketAddressTest, AMappedIpV4AddressIsShownAsIpV4) {
    const SocketAddress address = Numeric("::ffff:192.0.2.7", 80);
    EXPECT_EQ(AF_INET6, address.Family());
    EXPECT_EQ("192.0.2.7", address.Host());
    EXPECT_EQ("192.0.2.7", address.IpV4());
    EXPECT_EQ("192.0.2.7:80", address.Text());
}

TEST(SocketAddressTest, AUnixAddressIsItsPath) {
    const SocketAddress address = SocketAddress::OfUnixPath("/run/storage.sock");
    EXPECT_EQ(AF_UNIX, address.Family());
    EXPECT_EQ("/run/storage.sock", address.Text());
    EXPECT_EQ("", address.Host());
    EXPECT_EQ(0, address.Port());
    EXPECT_FALSE(address.IsLoopback());
}

TEST(SocketAddressTest, LoopbackAreTheAddressesThatNeverLeaveTheMachine) {
    EXPECT_TRUE(Numeric("127.0.0.1", 1).IsLoopback());
    EXPECT_TRUE(Numeric("127.255.255.254", 1).IsLoopback());
    EXPECT_TRUE(Numeric("::1", 1).IsLoopback());
    EXPECT_TRUE(Numeric("::ffff:127.0.0.1", 1).IsLoopback());
    EXPECT_FALSE(Numeric("128.0.0.1", 1).IsLoopback());
    EXPECT_FALSE(Numeric("::ffff:192.0.2.7", 1).IsLoopback());
    for (const char* other : {"::2", "2001::1", "0:0:1::1", "0:0:0:0:1::1"}) {
        EXPECT_FALSE(Numeric(other, 1).IsLoopback()) << other;
    }
}

TEST(SocketAddressTest, AUnixPathOf107BytesFits) {
    const std::string path(SocketAddress::highestPathSize, 'p');
    EXPECT_EQ(path, SocketAddress::OfUnixPath(path).Text());
}

TEST(SocketAddressTest, AUnixPathOf108BytesIsRefused) {
    const std::string path(SocketAddress::highestPathSize + 1, 'p');
    EXPECT_EQ("The path of a Unix-domain socket has 108 bytes, over the limit of 107: " + path,
              PathError(path));
}

TEST(SocketAddressTest, AnEmptyUnixPathIsRefused) {
    EXPECT_EQ("The path of a Unix-domain socket is empty", PathError(""));
}

TEST(SocketAddressTest, AUnixPathWithAZeroByteIsRefused) {
    EXPECT_EQ("The path of a Unix-domain socket holds a zero byte: /tmp/a",
              PathError(std::string("/tmp/a\0b", 8)));
    EXPECT_EQ("The path of a Unix-domain socket holds a zero byte: ",
              PathError(std::string("\0abstract", 9)));
}

TEST(SocketAddressTest, ANameWithAZeroByteIsRefused) {
    EXPECT_THROW(SocketAddress::Resolve(std::string("localhost\0x", 11), 1, false),
                 std::runtime_error);
}

TEST(SocketAddressTest, ANameThatCanNotExistIsRefusedWithWhatTheSystemSaid) {
    try {
        SocketAddress::Resolve("no such name", 1, false);
        FAIL() << "resolved";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Name or service not known", error.what());
    }
}

TEST(SocketAddressTest, EachAddressOfANameComesOnce) {
    const auto addresses = SocketAddress::Resolve("localhost", 1, false);
    ASSERT_THAT(addresses, Not(IsEmpty()));
    for (const SocketAddress& address : addresses) {
        EXPECT_EQ(1, std::count(addresses.begin(), addresses.end(), address)) << address.Text();
    }
}

TEST(SocketAddressTest, ToListenNoNameStandsForEveryAddressOfTheMachine) {
    std::vector<std::string> hosts;
    for (const SocketAddress& address : SocketAddress::Resolve("", 1, true)) {
        hosts.push_back(address.Host());
    }
    EXPECT_THAT(hosts, testing::UnorderedElementsAre("0.0.0.0", "::"));
}

TEST(SocketAddressTest, ASocketThatIsNoneHasNoAddress) {
    EXPECT_EQ(AF_UNSPEC, SocketAddress::OfSocket(-1).Family());
    EXPECT_EQ(AF_UNSPEC, SocketAddress::OfPeer(-1).Family());
    EXPECT_EQ("", SocketAddress::OfPeer(-1).Host());
}

TEST(SocketAddressTest, AListeningSocketHasItsAddressAndNoPeer) {
    const Tests::PlainTcpListener listener("127.0.0.1");
    EXPECT_EQ("127.0.0.1:" + std::to_string(listener.Port()),
              SocketAddress::OfSocket(listener.Get()).Text());
    EXPECT_EQ(AF_UNSPEC, SocketAddress::OfPeer(listener.Get()).Family());
}

}  // namespace
}  // namespace Brantel::Services
