// One client waits for the next chunk of a track, another appends it: how long it takes from the
// call of the append until the waiting client goes on. Real server, two connections, chunks of
// 4 KiB, a pause of 1 to 3 ms before each so that the wait has begun.
//
// usage: WakeBench [number of chunks, default 2000]

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/IServiceConnection.h>
#include <libServices/TcpSocketConnection.h>
#include <libServices/UnixDomainConnection.h>
#include <libTime/TimePoint.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Brantel::ProtocolX::DataChunk;
using Brantel::ProtocolX::StorageClientX;
using Brantel::Services::FileDescriptorServiceConnection;
using Brantel::Services::IServiceConnection;
using Brantel::Services::UnixDomainConnection;
using Brantel::Tests::ServerProcess;
using Brantel::Time::TimePoint;
using Clock = std::chrono::steady_clock;

constexpr std::size_t chunkBytes = 4096;

// What happened with each chunk.
struct Times {
    explicit Times(std::size_t count)
        : waited(count), called(count), answered(count), woken(count) {}

    std::vector<Clock::time_point> waited;    // the wait for it began
    std::vector<Clock::time_point> called;    // its append began
    std::vector<Clock::time_point> answered;  // its append was answered
    std::vector<Clock::time_point> woken;     // the wait for it ended
};

void WaitForAll(IServiceConnection& connection, long track, Times& times) {
    constexpr int timeoutMilliseconds = 10'000;
    BrantelStorageApi::Client client(connection);
    BrantelStorageApi::ClientTrackReader reader(connection, client.GetMutex(), track);
    Protocol::TimePoint last;
    for (std::size_t number = 0; number < times.woken.size(); ++number) {
        last.set_nanoseconds(number);
        bool isThere = false;
        times.waited[number] = Clock::now();
        reader.Wait(last, timeoutMilliseconds, isThere);
        times.woken[number] = Clock::now();
        if (!isThere) {
            std::fprintf(stderr, "WakeBench: chunk %zu was not seen\n", number);
            std::exit(1);
        }
    }
    reader.DestroyOnServer();
}

void AppendAll(StorageClientX& client, long track, Times& times) {
    std::minstd_rand random(1);
    DataChunk chunk;
    chunk.SetDuration(TimePoint::Nanoseconds(1));
    chunk.SetData("block", std::string(chunkBytes, 'x'));
    auto& writer = *client.GetTrackWriter(track);
    for (std::size_t number = 0; number < times.called.size(); ++number) {
        std::this_thread::sleep_for(std::chrono::microseconds(1000 + random() % 2000));
        chunk.SetTimePoint(TimePoint::Nanoseconds(static_cast<long>(number) + 1));
        times.called[number] = Clock::now();
        writer.Append(chunk);
        times.answered[number] = Clock::now();
    }
}

double Microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

std::string Quantiles(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto at = [&values](double part) {
        return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
    };
    std::vector<char> text(100);
    std::snprintf(text.data(), text.size(), "median %7.1f us, p99 %7.1f us", at(0.5), at(0.99));
    return text.data();
}

void Print(const std::string& name, const Times& times) {
    std::vector<double> appends;
    std::vector<double> wakes;
    std::size_t late = 0;
    for (std::size_t number = 0; number < times.called.size(); ++number) {
        appends.push_back(Microseconds(times.answered[number] - times.called[number]));
        if (times.waited[number] < times.called[number]) {
            wakes.push_back(Microseconds(times.woken[number] - times.called[number]));
        } else {
            ++late;
        }
    }
    if (wakes.empty()) {
        std::printf("%-24s no wait had begun in time\n", name.c_str());
        return;
    }
    std::printf("%-24s append to wake: %s; append to answer: %s; %zu waits, %zu began too late\n",
                name.c_str(), Quantiles(wakes).c_str(), Quantiles(appends).c_str(), wakes.size(),
                late);
    std::fflush(stdout);
}

std::unique_ptr<IServiceConnection> Connect(const ServerProcess& server, bool overTcp) {
    using OverTcp = Brantel::Services::TcpSocketConnection<FileDescriptorServiceConnection>;
    constexpr unsigned int timeoutMilliseconds = 10'000;
    if (overTcp) {
        return std::make_unique<OverTcp>("127.0.0.1", server.Port(), timeoutMilliseconds);
    }
    return std::make_unique<UnixDomainConnection>(server.SocketPath());
}

void Measure(const std::string& name, const std::vector<std::string>& options, bool overTcp,
             std::size_t count) {
    const Brantel::Tests::TemporaryFolder folder;
    std::vector<std::string> all = options;
    if (!all.empty()) {
        const std::vector<std::string> data = ServerProcess::OnFolder(folder.File("store"));
        all.insert(all.end(), data.begin(), data.end());
    }
    ServerProcess server(folder.File("storage.sock"), all);
    const std::unique_ptr<StorageClientX> appending =
        overTcp ? server.ConnectOverTcp() : server.ConnectOverUnix();
    const std::unique_ptr<IServiceConnection> waiting = Connect(server, overTcp);
    const long track = Brantel::Tests::CreateTrack(*appending);
    Times times(count);
    std::thread waiter([&] { WaitForAll(*waiting, track, times); });
    AppendAll(*appending, track, times);
    waiter.join();
    Print(name, times);
}

}  // namespace

int main(int argc, char** argv) {
    constexpr std::size_t defaultCount = 2000;
    const std::size_t count =
        argc > 1 ? static_cast<std::size_t>(std::atoll(argv[1])) : defaultCount;
    try {
        Measure("memory, Unix", {}, false, count);
        Measure("memory, TCP", {}, true, count);
        Measure("local os, Unix", {"--durability", "os"}, false, count);
        Measure("local os, TCP", {"--durability", "os"}, true, count);
        Measure("local always, Unix", {"--durability", "always"}, false, count);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "WakeBench: %s\n", error.what());
        return 1;
    }
}
