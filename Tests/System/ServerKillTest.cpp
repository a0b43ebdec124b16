// A server that is killed at any instant while a client records into it: after the restart
// everything that was answered is there as it was sent, nothing else is, and all of it in order.

#include "Support/ProofSize.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libServices/SocketDisconnected.h>

#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

// BRANTEL_KILL_CYCLES makes it longer.
int CountCycles() {
    const char* const wanted = std::getenv("BRANTEL_KILL_CYCLES");
    return wanted == nullptr ? static_cast<int>(ProofSize(100, 2000)) : std::atoi(wanted);
}

class ServerKillTest : public testing::Test {
  protected:
    // Room for some of the chunks, so that old ones are recycled all the time.
    static constexpr long capacity = 3L << 20U;
    static constexpr std::size_t largest = 60'000;

    void Start() {
        server.emplace(folder.File("storage.sock"), ServerProcess::OnFolder(folder.File("store")));
        client = server->ConnectOverUnix();
    }

    // Every chunk is made from its time point alone.
    static DataChunk MakeChunk(long time) {
        std::minstd_rand random(static_cast<unsigned>(time));
        const std::size_t size = random() % largest;
        DataChunk chunk;
        chunk.SetTimePoint(TimePoint::Nanoseconds(time));
        chunk.SetDuration(TimePoint::Nanoseconds(1));
        chunk.SetProperty("number", std::to_string(time));
        chunk.SetData("block", std::string(size, static_cast<char>(random())));
        return chunk;
    }

    // Appends until the server is gone; it is killed so long after this many answers. Returns how
    // many were answered.
    long RecordUntilKilled(long answersBefore, std::chrono::microseconds later) {
        std::thread killer;
        long answered = 0;
        try {
            ProtocolX::IStorageWriterX& writer = *client->GetTrackWriter(track);
            for (;;) {
                writer.Append(MakeChunk(last + answered + 1));
                ++answered;
                if (answered == answersBefore) {
                    killer = std::thread([this, later] {
                        const auto until = std::chrono::steady_clock::now() + later;
                        while (std::chrono::steady_clock::now() < until) {
                        }
                        server->Process().Signal(SIGKILL);
                    });
                }
            }
        } catch (const SocketDisconnected&) {
            killer.join();
            server->Process().Wait();
        }
        client.reset();
        return answered;
    }

    // Walks over the whole track. What was sent last may be there without having been answered.
    void CheckEverything() {
        ProtocolX::IStorageReaderX& reader = *client->GetTrackReader(track, 1);
        long time = reader.FirstTimePoint().ToNanoseconds();
        ASSERT_GE(time, 1);
        long bytes = 0;
        DataChunk chunk;
        for (TimePoint position = TimePoint::Nanoseconds(time - 1);
             reader.GetNextChunk(chunk, position, {}); position = chunk.GetTimePoint()) {
            const DataChunk sent = MakeChunk(time);
            ASSERT_EQ(chunk.GetTimePoint(), sent.GetTimePoint());
            ASSERT_EQ(chunk.GetProperty("number"), sent.GetProperty("number"));
            ASSERT_EQ(chunk.GetData("block"), sent.GetData("block")) << "chunk " << time;
            bytes += static_cast<long>(sent.GetData("block").size());
            ++time;
        }
        ASSERT_GE(time - 1, last) << "an answered chunk is lost";
        ASSERT_LE(time - 1, last + 1) << "there is a chunk that nobody sent";
        if (last > 2 * capacity / static_cast<long>(largest)) {
            ASSERT_GE(bytes, capacity / 2) << "chunks went although there was room for them";
        }
        last = time - 1;
    }

    TemporaryFolder folder;
    std::optional<ServerProcess> server;
    std::unique_ptr<StorageClientX> client;
    long track = 0;
    long last = 0;  // time point of the last chunk that was answered or found
};

TEST_F(ServerKillTest, WhatWasAnsweredIsThereAfterEveryKill) {
    std::mt19937 random(20'261'121);
    Start();
    track = CreateTrack(*client, capacity);
    for (int cycle = 0; cycle < CountCycles(); ++cycle) {
        const long answers = 1 + static_cast<long>(random() % 12);
        const std::chrono::microseconds later(random() % 3000);
        last += RecordUntilKilled(answers, later);
        Start();
        CheckEverything();
        if (HasFatalFailure()) {
            FAIL() << "in cycle " << cycle;
        }
    }
    RecordProperty("cycles", CountCycles());
}

TEST_F(ServerKillTest, ATrackThatWasBeingMadeIsThereOrNotAtAll) {
    constexpr int cycles = 10;
    std::mt19937 random(42);
    Start();
    for (int cycle = 0; cycle < cycles; ++cycle) {
        StorageClientX::TrackParameters wanted;
        wanted.size = 64L << 20U;
        const auto made = client->CreateTrack(wanted);
        const auto until =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 20'000);
        while (std::chrono::steady_clock::now() < until) {
        }
        server->Process().Signal(SIGKILL);
        server->Process().Wait();
        client.reset();
        Start();
        const auto state = client->GetCommandInfo(made.commandId).type;
        const bool isListed = client->TracksCreated({made.id}) == 0;
        ASSERT_EQ(state, isListed ? StorageClientX::FINISHED : StorageClientX::CANCELED) << cycle;
        if (isListed) {
            AppendChunk(*client, made.id, 1, "usable");
            EXPECT_EQ(ReadChunk(*client, made.id, 1), "usable");
        }
    }
}

}  // namespace
}  // namespace Brantel::Tests
