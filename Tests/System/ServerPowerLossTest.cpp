// A server that is killed while a client records into it, and then the power goes: what its file
// system has left is served by the next one, track by track the beginning of what was recorded,
// with everything that had been promised to last; and a check of it finds no damage.

#include "Support/LoopFileSystem.h"
#include "Support/ProofSize.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libServices/SocketDisconnected.h>

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds interval{250};
constexpr std::size_t largest = 60'000;

// A track as its client knows it. Its chunks are numbered, and lie at the time of their number.
struct Track {
    const char* durability;
    long id = 0;
    long safe = 0;       // chunks up to this one must be there
    long attempted = 0;  // later ones can't be
    // Of the present server's chunks, from `firstHere` on, when each was answered.
    long firstHere = 1;
    std::vector<Clock::time_point> answered{};
    // Which server each chunk was sent to: one that was lost and is sent again gets other bytes.
    std::vector<int> lives{0};
};

class ServerPowerLossTest : public testing::TestWithParam<LoopFileSystem::Kind> {
  protected:
    static constexpr long capacity = 4L << 20U;

    void SetUp() override {
        const std::string reason = LoopFileSystem::WhyNot(GetParam());
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        files = std::make_unique<LoopFileSystem>(GetParam());
        Start();
        for (Track& track : tracks) {
            track.id = CreateTrack(*client, capacity);
        }
    }

    void Start() {
        server.emplace(sockets.File("storage.sock"),
                       ServerProcess::OnFolder(files->Folder() + "/store"));
        client = server->ConnectOverUnix();
        ++life;
    }

    static DataChunk MakeChunk(long number, int life) {
        std::minstd_rand random(static_cast<unsigned>(number * 1000 + life));
        const std::size_t size = 1 + random() % largest;
        DataChunk chunk;
        chunk.SetTimePoint(TimePoint::Nanoseconds(number));
        chunk.SetDuration(TimePoint::Nanoseconds(1));
        chunk.SetProperty("life", std::to_string(life));
        chunk.SetData("block", std::string(size, static_cast<char>(random())));
        return chunk;
    }

    void SetDurability(Track& track, const char* durability) {
        track.durability = durability;
        client->SetTrackProperties(track.id, {{"storage.durability", durability}});
    }

    void Append(Track& track) {
        ++track.attempted;
        track.lives.push_back(life);
        client->GetTrackWriter(track.id)->Append(MakeChunk(track.attempted, life));
        track.answered.push_back(Clock::now());
        if (std::string(track.durability) == "always") {
            track.safe = track.attempted;
        }
    }

    // Appends to all tracks until the server is gone, which is killed after this time.
    void RecordUntilKilled(std::chrono::microseconds time) {
        std::thread killer([this, time] {
            std::this_thread::sleep_for(time);
            killed = Clock::now();
            server->Process().Signal(SIGKILL);
        });
        try {
            for (;;) {
                Track& track = tracks.at(random() % tracks.size());
                if (&track == &tracks.back() && random() % 16 == 0) {
                    SetDurability(track, std::string(track.durability) == "os" ? "always" : "os");
                }
                Append(track);
            }
        } catch (const SocketDisconnected&) {
            // The end that is waited for.
        } catch (const std::exception& error) {
            ADD_FAILURE() << "refused: " << error.what();
        }
        killer.join();
        server->Process().Wait();
        client.reset();
        server.reset();
    }

    // What was promised when the server was killed.
    void CountPromised(Track& track) const {
        if (std::string(track.durability) == intervalText) {
            const auto early =
                std::upper_bound(track.answered.begin(), track.answered.end(), killed - interval);
            track.safe =
                std::max(track.safe, track.firstHere + (early - track.answered.begin()) - 1);
        }
    }

    void ExpectNoDamage() {
        ProgramRun check({ServerProcess::Program(), "check", files->Folder() + "/store"});
        ASSERT_EQ(check.Wait(), 0) << check.Output() << check.Errors();
    }

    // Walks over the track and takes what is there for what it holds from now on.
    void TakeOver(Track& track) {
        ProtocolX::IStorageReaderX& reader = *client->GetTrackReader(track.id, 1);
        const long first = std::max(reader.FirstTimePoint().ToNanoseconds(), 1L);
        long number = first;
        long bytes = 0;
        DataChunk chunk;
        for (TimePoint position = TimePoint::Nanoseconds(-1);
             reader.GetNextChunk(chunk, position, {}); position = chunk.GetTimePoint(), ++number) {
            ASSERT_LE(number, track.attempted) << "a chunk that nobody sent";
            const DataChunk sent =
                MakeChunk(number, track.lives.at(static_cast<std::size_t>(number)));
            ASSERT_EQ(chunk.GetTimePoint(), sent.GetTimePoint());
            ASSERT_EQ(chunk.GetProperty("life"), sent.GetProperty("life")) << "chunk " << number;
            ASSERT_EQ(chunk.GetData("block"), sent.GetData("block")) << "chunk " << number;
            bytes += static_cast<long>(sent.GetData("block").size());
        }
        const long last = number - 1;
        ASSERT_GE(last, track.safe) << "a promised chunk is lost";
        const bool isAlwaysSafe = std::string(track.durability) == "always" && &track == &tracks[1];
        ASSERT_TRUE(first == 1 || bytes >= capacity / 2 || !isAlwaysSafe) << "room for more";
        lost += track.attempted - last;
        track.safe = last;
        track.attempted = last;
        track.firstHere = last + 1;
        track.answered.clear();
        track.lives.resize(static_cast<std::size_t>(last) + 1);
    }

    static constexpr const char* intervalText = "interval:250ms";

    std::unique_ptr<LoopFileSystem> files;
    const TemporaryFolder sockets;
    std::optional<ServerProcess> server;
    std::unique_ptr<StorageClientX> client;
    std::array<Track, 4> tracks{{{"os"}, {"always"}, {intervalText}, {"os"}}};
    std::mt19937_64 random{ProofSeed()};
    Clock::time_point killed;
    int life = 0;
    long lost = 0;  // of what was not promised
};

TEST_P(ServerPowerLossTest, EachTrackIsWhatItWasUpToAChunkAndNothingPromisedIsLost) {
    const std::uint64_t cycles = ProofSize(8, 250);
    for (std::uint64_t cycle = 0; cycle < cycles; ++cycle) {
        for (Track& track : tracks) {
            SetDurability(track, track.durability);
        }
        // Now and then long enough that the interval promises something.
        const auto least = cycle % 4 == 0 ? std::chrono::microseconds(interval)
                                          : std::chrono::microseconds::zero();
        RecordUntilKilled(least + std::chrono::microseconds(random() % 150'000));
        files->CutPower();
        ExpectNoDamage();
        Start();
        for (Track& track : tracks) {
            CountPromised(track);
            TakeOver(track);
            ASSERT_FALSE(HasFailure()) << "cycle " << cycle << ", " << track.durability
                                       << ", BRANTEL_SEED " << ProofSeed();
        }
    }
    EXPECT_GT(lost, 0) << "the power took nothing, so nothing is proved";
    RecordProperty("cycles", static_cast<int>(cycles));
    RecordProperty("lost", static_cast<int>(lost));
}

INSTANTIATE_TEST_SUITE_P(FileSystem, ServerPowerLossTest,
                         testing::Values(LoopFileSystem::Kind::Ext4, LoopFileSystem::Kind::Xfs),
                         [](const auto& kind) {
                             return kind.param == LoopFileSystem::Kind::Ext4 ? "Ext4" : "Xfs";
                         });

}  // namespace
}  // namespace Brantel::Tests
