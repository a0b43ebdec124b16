// What listening does when the system fails as no test can make it fail.
#include "Support/ScriptedCalls.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"

#include <libServices/ListeningSocket.h>
#include <libServices/OwnedDescriptor.h>
#include <libServices/SocketAddress.h>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Brantel::Services {
namespace {

using Tests::Fails;
using Tests::Passes;
using Tests::ScriptedCall;
using Tests::SystemCall;

// --- listening on TCP

std::string ListenTcp(const std::string& host) {
    try {
        ListeningSocket::OnTcp(host, 0);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "listens";
}

TEST(ListeningTcpSocketSystemTest, AnOptionThatCannotBeSetIsReported) {
    const ScriptedCall setsockopt(SystemCall::Setsockopt, {Fails(ENOBUFS)});
    EXPECT_EQ(ListenTcp("127.0.0.1"),
              "Could not listen on 127.0.0.1 port 0: No buffer space available");
}

TEST(ListeningTcpSocketSystemTest, AnIpV6SocketThatWouldTakeIpV4TooIsNotUsed) {
    if (!Tests::HasIpV6()) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
    const ScriptedCall setsockopt(SystemCall::Setsockopt, {Passes(), Fails(ENOBUFS)});
    EXPECT_EQ(ListenTcp("::1"), "Could not listen on ::1 port 0: No buffer space available");
}

TEST(ListeningTcpSocketSystemTest, APortThatIsTakenBetweenBindAndListenIsReported) {
    const ScriptedCall listen(SystemCall::Listen, {Fails(EADDRINUSE)});
    EXPECT_EQ(ListenTcp("127.0.0.1"),
              "Could not listen on 127.0.0.1 port 0: Address already in use");
}

TEST(ListeningTcpSocketSystemTest, AFamilyThatTheSystemDoesNotKnowIsReported) {
    const ScriptedCall socket(SystemCall::Socket, {Fails(EAFNOSUPPORT)});
    EXPECT_EQ(ListenTcp("127.0.0.1"),
              "Could not listen on 127.0.0.1 port 0: Address family not supported by protocol");
}

// --- listening on a Unix-domain socket

class ListeningUnixSocketSystemTest : public testing::Test {
  protected:
    // "listens", or the reason why not.
    std::string Listen() const {
        const std::string where = "Could not listen on " + path + ": ";
        try {
            ListeningSocket::OnUnix(path, 0660);
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_EQ(text.substr(0, where.size()), where);
            return text.substr(where.size());
        }
        return "listens";
    }
    // Leaves a socket file behind as a server does that was killed.
    void LeaveStaleFile() const {
        const OwnedDescriptor server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const SocketAddress address = SocketAddress::OfUnixPath(path);
        ASSERT_EQ(0, bind(server.Get(), address.Get(), address.Size()));
    }
    bool FileExists() const { return std::filesystem::exists(path); }

    const Tests::TemporaryFolder folder;
    const std::string path = folder.File("s");
};

TEST_F(ListeningUnixSocketSystemTest, AFileWhoseModeCannotBeSetIsRemoved) {
    const ScriptedCall fchmodat(SystemCall::Fchmodat, {Fails(EROFS)});
    EXPECT_EQ(Listen(), "Read-only file system");
    EXPECT_FALSE(FileExists());
}

TEST_F(ListeningUnixSocketSystemTest, AFileThatCannotBeLookedAtIsRemoved) {
    const ScriptedCall fstatat(SystemCall::Fstatat, {Fails(EIO)});
    EXPECT_EQ(Listen(), "Input/output error");
    EXPECT_FALSE(FileExists());
}

TEST_F(ListeningUnixSocketSystemTest, AStaleFileThatCannotBeLookedAtIsKnockedOnAllTheSame) {
    LeaveStaleFile();
    const ScriptedCall fstatat(SystemCall::Fstatat, {Fails(EIO)});
    EXPECT_EQ(Listen(), "listens");
    EXPECT_EQ(fstatat.Left(), 0U);
}

TEST_F(ListeningUnixSocketSystemTest, WithoutADescriptorToKnockAFileIsLeftAlone) {
    LeaveStaleFile();
    const ScriptedCall socket(SystemCall::Socket, {Passes(), Fails(EMFILE)});
    EXPECT_EQ(Listen(), "Too many open files");
    EXPECT_TRUE(FileExists());
}

TEST_F(ListeningUnixSocketSystemTest, AStaleFileThatCannotBeRemovedIsReported) {
    LeaveStaleFile();
    const ScriptedCall unlinkat(SystemCall::Unlinkat, {Fails(EACCES)});
    EXPECT_EQ(Listen(), "Permission denied");
    EXPECT_TRUE(FileExists());
}

}  // namespace
}  // namespace Brantel::Services
