// Many connections: what they cost while they are there, and what is left of them afterwards.

#include "Support/ProcessState.h"
#include "Support/RawClient.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

class ServerCrowdTest : public testing::Test {
  protected:
    // So many connections, or as many as the variable says.
    static int Connections(int otherwise) {
        const char* const text = std::getenv("BRANTEL_CONNECTIONS");
        return text == nullptr ? otherwise : std::atoi(text);
    }
    std::string Proc(const std::string& name) const {
        return "/proc/" + std::to_string(server.Process().Id()) + "/" + name;
    }
    std::size_t Descriptors() const { return CountEntries(Proc("fd")); }
    std::size_t Threads() const { return CountEntries(Proc("task")); }
    // What belongs to the server alone, in bytes.
    std::size_t Memory() const {
        std::ifstream rollup(Proc("smaps_rollup"));
        std::size_t kibibytes = 0;
        for (std::string word; rollup >> word;) {
            if (word == "Rss:") {
                rollup >> kibibytes;
                break;
            }
        }
        return kibibytes * 1024;
    }
    // Opens connections and closes them, some in the middle of a message.
    void OpenAndClose(Transport transport, int count) {
        for (int i = 0; i < count; ++i) {
            RawClient client(server, transport);
            if (i % 4 == 0) {
                EXPECT_EQ(client.AskForTracks(), "done");
            } else if (i % 4 == 1) {
                client.Announce(5000, 10);
            }
        }
    }

    TemporaryFolder folder;
    mutable ServerProcess server{folder.File("storage.sock")};
};

TEST_F(ServerCrowdTest, ConnectionsThatEndedLeaveNoDescriptorAndNoThread) {
    const int count = Connections(2000) / 2;
    const std::size_t descriptors = Descriptors();
    const std::size_t threads = Threads();
    OpenAndClose(Transport::Unix, count);
    OpenAndClose(Transport::Tcp, count);
    EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; })) << Descriptors();
    EXPECT_TRUE(Eventually([&] { return Threads() == threads; })) << Threads();
    EXPECT_EQ(RawClient(server, Transport::Unix).AskForTracks(), "done");
}

TEST_F(ServerCrowdTest, IdleConnectionsAreCheap) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(BRANTEL_COVERAGE)
    GTEST_SKIP() << "SKIPPED: the memory of sanitizers or counters would be counted";
#endif
    constexpr int count = 4096;
    constexpr std::size_t limit = std::size_t{64} << 20U;
    if (!SetSoftLimit(RLIMIT_NOFILE, count + 100)) {
        GTEST_SKIP() << "SKIPPED: so many descriptors are not allowed here";
    }
    for (const Transport transport : {Transport::Unix, Transport::Tcp}) {
        std::vector<RawClient> clients;
        clients.reserve(count);
        const std::size_t before = Memory();
        for (int i = 0; i < count; ++i) {
            clients.emplace_back(server, transport);
            ASSERT_EQ(clients.back().AskForTracks(), "done");
        }
        const std::size_t cost = Memory() - before;
        std::cout << count << " idle connections cost " << cost / 1024 << " KiB, limit "
                  << limit / 1024 << " KiB\n";
        EXPECT_LE(cost, limit);
        clients.clear();
        EXPECT_TRUE(Eventually([&] { return Threads() < 10; }));
    }
}

}  // namespace
}  // namespace Brantel::Tests
