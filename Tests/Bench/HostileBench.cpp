// What hostile clients cost honest ones: four recorders, each with 500 appends of 16 KiB a second,
// two over a Unix-domain socket and two over TCP, alone and beside 1,000 clients that drip a byte a
// second into a message and 100 stopped ones that take no answer. Real server, local engine without
// flushes. Alone and beside in turn; the ratio of the medians of the turns' 99th percentiles.
//
// usage: HostileBench [turns of each, default 9] [seconds of a turn, default 3]

#include "Bench/Comparison.h"
#include "Support/ChildProcess.h"
#include "Support/ProcessState.h"
#include "Support/RawClient.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Brantel::ProtocolX::DataChunk;
using Brantel::ProtocolX::StorageClientX;
using Brantel::Tests::ChildProcess;
using Brantel::Tests::RawClient;
using Brantel::Tests::ServerProcess;
using Brantel::Tests::Transport;
using Brantel::Time::TimePoint;
using Clock = std::chrono::steady_clock;

constexpr std::size_t recorders = 4;
constexpr std::size_t chunkBytes = std::size_t{16} * 1024;
constexpr std::chrono::microseconds period{2000};
constexpr std::size_t drippers = 1000;
constexpr std::size_t stopped = 100;
constexpr std::size_t largeChunk = 900'000;

// One recorder, with a connection and a track of its own.
class Recorder {
  public:
    Recorder(const ServerProcess& server, Transport transport)
        : client(transport == Transport::Unix ? server.ConnectOverUnix() : server.ConnectOverTcp()),
          track(Brantel::Tests::CreateTrack(*client)) {
        chunk.SetDuration(TimePoint::Nanoseconds(1));
        chunk.SetData("block", std::string(chunkBytes, 'x'));
    }

    // Appends at its rate; how long each append took, in seconds. A late one is followed at once.
    std::vector<double> Record(std::size_t count) {
        std::vector<double> times;
        times.reserve(count);
        auto& writer = *client->GetTrackWriter(track);
        Clock::time_point next = Clock::now();
        for (std::size_t i = 0; i < count; ++i) {
            std::this_thread::sleep_until(next);
            next += period;
            chunk.SetTimePoint(TimePoint::Nanoseconds(++last));
            const Clock::time_point start = Clock::now();
            writer.Append(chunk);
            times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
        return times;
    }

  private:
    const std::unique_ptr<StorageClientX> client;
    const long track;
    DataChunk chunk;
    long last = 0;
};

Transport TransportOf(std::size_t number) {
    return number % 2 == 0 ? Transport::Unix : Transport::Tcp;
}

// Begins messages that never end, some of which are large enough to take room, and feeds each with
// a byte a second, until it is killed.
int Drip(const ServerProcess& server, int channel) {
    constexpr std::size_t smallMessage = 5000;
    constexpr std::size_t largeMessage = 300'000;
    std::vector<RawClient> clients;
    clients.reserve(drippers);
    for (std::size_t i = 0; i < drippers; ++i) {
        clients.emplace_back(server, TransportOf(i));
        clients.back().Announce(i % 4 < 3 ? smallMessage : largeMessage, 10);
    }
    ChildProcess::Say(channel);
    constexpr std::chrono::microseconds pause{1'000'000 / drippers};
    Clock::time_point next = Clock::now();
    for (;;) {
        for (RawClient& client : clients) {
            std::this_thread::sleep_until(next += pause);
            if (!client.TryWrite("x")) {
                std::fprintf(stderr, "HostileBench: a dripping client was cut too early\n");
                return EXIT_FAILURE;
            }
        }
    }
}

// Asks for more than any buffers hold, and takes none of it.
int AskAndStop(const ServerProcess& server, long track, int channel) {
    constexpr int questions = 10;
    std::vector<RawClient> clients;
    clients.reserve(stopped);
    for (std::size_t i = 0; i < stopped; ++i) {
        clients.emplace_back(server, TransportOf(i));
        BrantelStorageApi::Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackReader_GetChunk);
        auto& question = *request.mutable_trackreader_getchunk();
        question.set_object_handle(clients.back().OpenReader(track));
        question.mutable_timecode()->set_nanoseconds(1);
        question.mutable_keys();
        for (int asked = 0; asked < questions; ++asked) {
            clients.back().Send(request);
        }
    }
    ChildProcess::Say(channel);
    ChildProcess::Hear(channel);
    return EXIT_SUCCESS;
}

class Scene {
  public:
    Scene() {
        if (!Brantel::Tests::SetSoftLimit(RLIMIT_NOFILE, 2 * drippers)) {
            throw std::runtime_error("So many descriptors are not allowed here");
        }
        std::vector<std::string> options = ServerProcess::OnFolder(folder.File("store"));
        options.insert(options.end(), {"--durability", "os"});
        server.emplace(folder.File("storage.sock"), options);
        const auto client = server->ConnectOverUnix();
        track = Brantel::Tests::CreateTrack(*client, 64L << 20U);
        Brantel::Tests::AppendChunk(*client, track, 1, std::string(largeChunk, 'x'));
        for (std::size_t i = 0; i < recorders; ++i) {
            honest.push_back(std::make_unique<Recorder>(*server, TransportOf(i)));
        }
    }

    // The 99th percentile of one turn.
    double Alone(std::size_t count) {
        Settle(recorders + stopped);
        return Record(count);
    }
    double Beside(std::size_t count) {
        ChildProcess dripping([this](int channel) { return Drip(*server, channel); });
        ChildProcess standing([this](int channel) { return AskAndStop(*server, track, channel); });
        if (!dripping.Hear() || !standing.Hear() || !standing.Stop()) {
            throw std::runtime_error("The hostile clients did not begin");
        }
        Settle(recorders + 2 * (drippers + stopped));
        const double result = Record(count);
        if (Threads() < drippers + stopped) {
            throw std::runtime_error("The hostile clients were cut before the turn was over");
        }
        return result;
    }

  private:
    std::size_t Threads() const {
        return Brantel::Tests::CountEntries("/proc/" + std::to_string(server->Process().Id()) +
                                            "/task");
    }
    // Waits until no more than so many threads are left and what is to come has come: it is not
    // their coming and going that is measured.
    void Settle(std::size_t threads) const {
        constexpr std::chrono::milliseconds look{200};
        constexpr std::chrono::milliseconds busy{20};
        const pid_t process = server->Process().Id();
        std::chrono::nanoseconds before{0};
        std::chrono::nanoseconds used{0};
        do {
            before = Brantel::Tests::ProcessorTime(process);
            std::this_thread::sleep_for(look);
            used = Brantel::Tests::ProcessorTime(process) - before;
        } while (used > busy || Threads() > threads);
    }
    double Record(std::size_t count) {
        std::vector<std::vector<double>> times(recorders);
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < recorders; ++i) {
            threads.emplace_back([&, i] { times[i] = honest[i]->Record(count); });
        }
        std::vector<double> all;
        for (std::size_t i = 0; i < recorders; ++i) {
            threads[i].join();
            all.insert(all.end(), times[i].begin(), times[i].end());
        }
        std::sort(all.begin(), all.end());
        return all[all.size() * 99 / 100];
    }

    const Brantel::Tests::TemporaryFolder folder;
    mutable std::optional<ServerProcess> server;
    long track = 0;
    std::vector<std::unique_ptr<Recorder>> honest;
};

}  // namespace

int main(int argc, char** argv) {
    constexpr int defaultTurns = 9;
    constexpr std::size_t defaultSeconds = 3;
    constexpr double goal = 1.25;
    const int turns = argc > 1 ? std::atoi(argv[1]) : defaultTurns;
    const std::size_t seconds =
        argc > 2 ? static_cast<std::size_t>(std::atoll(argv[2])) : defaultSeconds;
    const std::size_t count = seconds * (std::chrono::microseconds(1'000'000) / period);
    try {
        Scene scene;
        Brantel::Bench::Report report;
        const Brantel::Bench::Medians p99 = Brantel::Bench::TakeTurns(
            turns, [&] { return scene.Alone(count); }, [&] { return scene.Beside(count); });
        report.AtMost("p99 of an append beside 1,000 dripping and 100 stopped clients",
                      Brantel::Bench::Microseconds(p99.ours),
                      Brantel::Bench::Microseconds(p99.base) + " alone", p99.ours / p99.base, goal);
        report.End();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "HostileBench: %s\n", error.what());
        return 1;
    }
}
