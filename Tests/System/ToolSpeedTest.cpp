// A long track is looked at as quickly as an empty one.

#include "Support/ProofSize.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "ToolRun.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>

namespace Brantel::Tests {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

// Processor time of all children that have been waited for.
std::chrono::microseconds ChildrenTime() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

class ToolSpeedTest : public testing::Test {
  protected:
    // Processor time of the tool, and what it printed.
    std::chrono::microseconds Measure(const std::vector<std::string>& verb) {
        std::vector<std::string> arguments{"--server", "unix:" + socketPath};
        arguments.insert(arguments.end(), verb.begin(), verb.end());
        const auto before = ChildrenTime();
        const ToolRun run(arguments);
        EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
        output = run.Output();
        return ChildrenTime() - before;
    }
    void Fill(long track, std::uint64_t chunks) {
        ProtocolX::DataChunk chunk;
        chunk.SetDuration(Time::TimePoint::Nanoseconds(1));
        chunk.SetData("block", "x");
        ProtocolX::IStorageWriterX* const writer = client->GetTrackWriter(track);
        for (std::uint64_t i = 0; i < chunks; ++i) {
            chunk.SetTimePoint(Time::TimePoint::Nanoseconds(static_cast<long>(i)));
            writer->Append(chunk);
        }
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    const ServerProcess server{socketPath};
    const std::unique_ptr<ProtocolX::StorageClientX> client = server.ConnectOverUnix();
    std::string output;
};

TEST_F(ToolSpeedTest, ALongTrackIsLookedAtInNoTimeOfTheToolsOwn) {
    const std::uint64_t chunks = ProofSize(20'000, 1'000'000);
    const long track = CreateTrack(*client, 400L << 20U);
    const auto empty = Measure({"info", "1"});
    Fill(track, chunks);
    const auto list = Measure({"ls"});
    EXPECT_THAT(output, HasSubstr(std::to_string(chunks)));
    const auto info = Measure({"info", "1"});
    EXPECT_THAT(output, HasSubstr(std::to_string(chunks)));
    std::cout << chunks << " chunks: ls " << list.count() << " us, info " << info.count()
              << " us of processor time; info of an empty track " << empty.count() << " us\n";
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const auto limit = 2 * empty + milliseconds(100);
#else
    const auto limit = milliseconds(100);
#endif
    EXPECT_LT(list, limit);
    EXPECT_LT(info, limit);
}

}  // namespace
}  // namespace Brantel::Tests
