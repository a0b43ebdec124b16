// A client over TCP whose machine vanishes: no end of the stream, no answer to anything.

#include "Support/ChildProcess.h"
#include "Support/RawClient.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <string>

namespace Brantel::Tests {
namespace {

constexpr int notAllowed = 77;

// Of the network that this process is in.
bool SwitchLoopback(short flags) {
    const Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = flags;
    return ioctl(control.Get(), SIOCSIFFLAGS, &loopback) == 0;
}

// Server and clients in a network of their own, which then carries nothing any more.
int Vanish() {
    if (unshare(CLONE_NEWNET) != 0 || !SwitchLoopback(IFF_UP)) {
        return notAllowed;
    }
    const TemporaryFolder folder;
    ServerProcess server(folder.File("storage.sock"));
    RawClient idle(server, Transport::Tcp);
    RawClient half(server, Transport::Tcp);
    EXPECT_EQ(idle.AskForTracks(), "done");
    EXPECT_EQ(half.AskForTracks(), "done");
    half.Announce(5000, 10);
    EXPECT_EQ(server.ConnectOverUnix()->ListTracks().size(), 0U);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(SwitchLoopback(0));
    EXPECT_TRUE(Eventually([&] {
        const std::string log = server.Process().Errors();
        const std::size_t first = log.find("Connection lost: ");
        return first != std::string::npos && log.find("Connection lost: ", first + 1) != log.npos;
    })) << server.Process().Errors();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << "both were noticed after " << seconds << " s\n";
    EXPECT_LT(seconds, 30);
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(ServerVanishedHostTest, IsNoticedWithinThirtySeconds) {
    ChildProcess child([](int) { return Vanish(); });
    const int result = child.Wait();
    if (result == notAllowed) {
        GTEST_SKIP() << "SKIPPED: no right to give this test a network of its own";
    }
    EXPECT_EQ(0, result);
}

}  // namespace
}  // namespace Brantel::Tests
