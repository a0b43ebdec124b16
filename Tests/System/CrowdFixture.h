#pragma once

#include "Support/ProcessState.h"
#include "Support/RawClient.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace Brantel::Tests {

// A server that many clients come to.
class CrowdFixture : public testing::Test {
  protected:
    std::string Proc(const std::string& name) const {
        return "/proc/" + std::to_string(server.Process().Id()) + "/" + name;
    }
    std::size_t Descriptors() const { return CountEntries(Proc("fd")); }
    std::size_t Threads() const { return CountEntries(Proc("task")); }
    // What is in memory of the server, in bytes.
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
    // So many connections, half of them over each transport, leave nothing behind.
    void ExpectNothingLeftOf(int connections) {
        const std::size_t descriptors = Descriptors();
        const std::size_t threads = Threads();
        OpenAndClose(Transport::Unix, connections / 2);
        OpenAndClose(Transport::Tcp, connections / 2);
        EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; })) << Descriptors();
        EXPECT_TRUE(Eventually([&] { return Threads() == threads; })) << Threads();
        EXPECT_EQ(RawClient(server, Transport::Unix).AskForTracks(), "done");
    }

    TemporaryFolder folder;
    mutable ServerProcess server{folder.File("storage.sock")};
};

}  // namespace Brantel::Tests
