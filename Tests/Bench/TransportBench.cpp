// The protocol beside a bare exchange of the same bytes over the same kind of socket, in turn, in
// one run.
//
// Each line is one kind of call. It reports the median time of a call through the stubs (call_us),
// the better of two bare exchanges (bare_us: blocking, and polling for a moment first), their
// ratio, and the goal for the ratio. The server keeps the last four chunks that it got, and copies
// a chunk out for each read. Where buffers lie in memory decides how fast they are copied, so every
// line is measured on a dozen connections whose heaps are scattered in different ways.
//
//   two     client and server on a processor each
//   one     both on one processor
//   busy    one processor each, and on each a process that never rests; the baseline is our own
//           blocking call
//   ten     ten clients that call at once; likewise
#include "Bench/BareExchange.h"
#include "Bench/BenchServer.h"
#include "Bench/KeepingStorage.h"
#include "Bench/ScatteredHeap.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libProtocolX/rpc/ClientTrackStorage.h>
#include <libProtocolX/rpc/ClientTrackWriter.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/NativeMutex.h>
#include <libServices/SpinGovernor.h>

#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Bench {
namespace {

using Services::FileDescriptorServiceConnection;
using Services::SpinGovernor;

enum class Kind { Ping, Append, Discard, Read };
enum class Placing { Two, One };

// What the product polls: the server's end and the client's.
constexpr int pollMicroseconds = 30;
constexpr int clientPollMicroseconds = 100;
// So many connections with a heap scattered in another way, and rounds in turn on each.
constexpr unsigned placements = 12;
constexpr int rounds = 4;

Protocol::Chunk MakeChunk(std::size_t size) {
    Protocol::Chunk chunk;
    chunk.mutable_timecode()->set_nanoseconds(1);
    chunk.mutable_duration()->set_nanoseconds(1);
    auto* item = chunk.mutable_data()->add_items();
    item->set_key("data");
    item->mutable_value()->assign(size, 'x');
    return chunk;
}

// The bytes that one call of this kind moves each way, frame lengths included.
BareShape ShapeOf(Kind kind, std::size_t size, bool polls) {
    constexpr std::uint64_t smallFrame = 24;
    BareShape shape{smallFrame, kind == Kind::Ping ? 16U : 5U, polls ? 1U : 0U,
                    BareShape::inMemory};
    if (kind == Kind::Append || kind == Kind::Discard) {
        BrantelStorageApi::Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackWriter_Append);
        request.mutable_trackwriter_append()->set_object_handle(1);
        *request.mutable_trackwriter_append()->mutable_chunk() = MakeChunk(size);
        shape.requestSize = request.ByteSizeLong() + 4;
    } else if (kind == Kind::Read) {
        BrantelStorageApi::Response response;
        response.set_is_success(true);
        *response.mutable_trackreader_getchunk()->mutable_chunk() = MakeChunk(size);
        shape.answerSize = response.ByteSizeLong() + 4;
    }
    return shape;
}

// One client of the protocol, with what its kind of call needs.
class ProtocolCaller {
  public:
    ProtocolCaller(int fd, Kind kind, std::size_t size, SpinGovernor& governor)
        : connection(fd, FileDescriptorServiceConnection::defaultMessageLimit, governor),
          kind(kind),
          storage(connection, mutex),
          chunk(MakeChunk(size)) {
        timecode.set_nanoseconds(size);
        if (kind == Kind::Append || kind == Kind::Discard) {
            const long track = kind == Kind::Append ? keepingTrack : discardingTrack;
            writer =
                std::make_unique<BrantelStorageApi::ClientTrackWriter>(connection, mutex, track);
        } else if (kind == Kind::Read) {
            reader = std::make_unique<BrantelStorageApi::ClientTrackReader>(connection, mutex,
                                                                            keepingTrack);
        }
    }

    void Call() {
        long trackSize = 0;
        bool found = false;
        switch (kind) {
            case Kind::Ping: storage.GetTrackSize(1, trackSize); break;
            case Kind::Append:
            case Kind::Discard: writer->Append(chunk); break;
            case Kind::Read: reader->GetChunk(timecode, keys, answer, found); break;
        }
    }

  private:
    FileDescriptorServiceConnection connection;
    Services::NativeMutex mutex;
    const Kind kind;
    BrantelStorageApi::ClientTrackStorage storage;
    std::unique_ptr<BrantelStorageApi::ClientTrackWriter> writer;
    std::unique_ptr<BrantelStorageApi::ClientTrackReader> reader;
    Protocol::Chunk chunk;
    Protocol::Chunk answer;
    Protocol::TimePoint timecode;
    Protocol::KeyList keys;
};

// Times of single calls, in microseconds.
class Times {
  public:
    template <typename F>
    void Measure(int calls, F call) {
        for (int i = 0; i < calls; ++i) {
            const auto start = std::chrono::steady_clock::now();
            call();
            const std::chrono::duration<double, std::micro> took =
                std::chrono::steady_clock::now() - start;
            times.push_back(took.count());
        }
    }
    double Median() {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

  private:
    std::vector<double> times;
};

int CallsInARound(std::size_t size) {
    return static_cast<int>(
        std::clamp<std::size_t>((std::size_t{24} << 20U) / (size + 65536), 6, 300));
}

void Report(benchmark::State& state, double call, double base, const char* baseName, double goal) {
    state.counters["call_us"] = call;
    state.counters[baseName] = base;
    state.counters["ratio"] = call / base;
    state.counters["goal"] = goal;
    state.counters["met"] = call / base <= goal ? 1 : 0;
}

void AgainstBare(benchmark::State& state, Transport transport, Placing placing, Kind kind,
                 std::size_t size, double goal) {
    const BenchServer server(placing == Placing::Two ? 1 : 0, pollMicroseconds);
    KeepOnProcessor(0);
    SpinGovernor governor{std::chrono::microseconds(clientPollMicroseconds)};
    for (auto _ : state) {
        const int calls = CallsInARound(size);
        Times blockingTimes;
        Times pollingTimes;
        Times callTimes;
        for (unsigned placement = 0; placement < placements; ++placement) {
            const ScatteredHeap heap(placement);
            BareExchange blocking(server.ConnectBare(transport), ShapeOf(kind, size, false));
            BareExchange polling(server.ConnectBare(transport), ShapeOf(kind, size, true));
            ProtocolCaller caller(server.ConnectProtocol(transport), kind, size, governor);
            for (int round = 0; round < rounds; ++round) {
                // Two connections at once would be one too many for the bounded poll; the bare
                // ones rest.
                blockingTimes.Measure(calls, [&] { blocking.Call(); });
                pollingTimes.Measure(calls, [&] { polling.Call(); });
                callTimes.Measure(calls, [&] { caller.Call(); });
            }
        }
        Report(state, callTimes.Median(), std::min(blockingTimes.Median(), pollingTimes.Median()),
               "bare_us", goal);
    }
    KeepOnProcessor(BenchServer::anyProcessor);
}

// A process on one processor that never rests.
class BusyProcess {
  public:
    explicit BusyProcess(int processor) : child(::fork()) {
        if (child == 0) {
            KeepOnProcessor(processor);
            for (volatile bool rests = false; !rests;) {
            }
        }
    }
    ~BusyProcess() {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    BusyProcess(const BusyProcess&) = delete;
    BusyProcess& operator=(const BusyProcess&) = delete;

  private:
    pid_t child;
};

// Polling against blocking, both through the protocol.
void PollingAgainstBlocking(benchmark::State& state, Transport transport, Placing placing,
                            bool busy, double goal) {
    const int serverProcessor = placing == Placing::Two ? 1 : 0;
    const BenchServer pollingServer(serverProcessor, pollMicroseconds);
    const BenchServer blockingServer(serverProcessor, 0);
    std::vector<std::unique_ptr<BusyProcess>> neighbours;
    if (busy) {
        neighbours.push_back(std::make_unique<BusyProcess>(0));
        neighbours.push_back(std::make_unique<BusyProcess>(1));
    }
    KeepOnProcessor(0);
    SpinGovernor pollingGovernor{std::chrono::microseconds(clientPollMicroseconds)};
    SpinGovernor blockingGovernor{std::chrono::nanoseconds(0)};
    for (auto _ : state) {
        ProtocolCaller polling(pollingServer.ConnectProtocol(transport), Kind::Ping, 0,
                               pollingGovernor);
        ProtocolCaller blocking(blockingServer.ConnectProtocol(transport), Kind::Ping, 0,
                                blockingGovernor);
        Times pollingTimes;
        Times blockingTimes;
        for (int round = 0; round < rounds; ++round) {
            pollingTimes.Measure(300, [&] { polling.Call(); });
            blockingTimes.Measure(300, [&] { blocking.Call(); });
        }
        Report(state, pollingTimes.Median(), blockingTimes.Median(), "blocking_us", goal);
    }
    KeepOnProcessor(BenchServer::anyProcessor);
}

// Ten clients, one thread each, on both processors with their server: the time for a fixed number
// of calls.
void TenClients(benchmark::State& state, Transport transport, double goal) {
    constexpr int clients = 10;
    constexpr int callsEach = 1500;
    const BenchServer pollingServer(BenchServer::anyProcessor, pollMicroseconds);
    const BenchServer blockingServer(BenchServer::anyProcessor, 0);
    const auto run = [transport](const BenchServer& server, int microseconds) {
        SpinGovernor governor{std::chrono::microseconds(microseconds)};
        std::vector<std::thread> threads;
        const auto start = std::chrono::steady_clock::now();
        threads.reserve(clients);
        for (int i = 0; i < clients; ++i) {
            threads.emplace_back([&] {
                ProtocolCaller caller(server.ConnectProtocol(transport), Kind::Ping, 0, governor);
                for (int call = 0; call < callsEach; ++call) {
                    caller.Call();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        const std::chrono::duration<double, std::micro> took =
            std::chrono::steady_clock::now() - start;
        return took.count() / (clients * callsEach);
    };
    for (auto _ : state) {
        std::vector<double> polling;
        std::vector<double> blocking;
        for (int round = 0; round < 15; ++round) {
            polling.push_back(run(pollingServer, clientPollMicroseconds));
            blocking.push_back(run(blockingServer, 0));
        }
        std::nth_element(polling.begin(), polling.begin() + 7, polling.end());
        std::nth_element(blocking.begin(), blocking.begin() + 7, blocking.end());
        Report(state, polling[7], blocking[7], "blocking_us", goal);
    }
}

struct Goals {
    double unixSocket;
    double tcp;
};

void RegisterAll() {
    constexpr std::size_t kibi = 1024;
    constexpr std::size_t mebi = kibi * kibi;
    struct Line {
        const char* name;
        Kind kind;
        std::size_t size;
        Goals goals;
    };
    const std::vector<Line> lines{
        {"ping", Kind::Ping, 0, {1.3, 1.15}},
        {"append/100B", Kind::Append, 100, {1.3, 1.15}},
        {"append/4KiB", Kind::Append, 4 * kibi, {1.3, 1.15}},
        {"append/256KiB", Kind::Append, 256 * kibi, {1.25, 1.25}},
        {"append/1MiB", Kind::Append, mebi, {1.4, 1.6}},
        {"append/8MiB", Kind::Append, 8 * mebi, {2.0, 2.0}},
        {"discard/256KiB", Kind::Discard, 256 * kibi, {1.1, 1.1}},
        {"discard/1MiB", Kind::Discard, mebi, {1.1, 1.1}},
        {"discard/8MiB", Kind::Discard, 8 * mebi, {1.1, 1.1}},
        {"read/100B", Kind::Read, 100, {1.45, 1.15}},
        {"read/4KiB", Kind::Read, 4 * kibi, {1.45, 1.15}},
        {"read/256KiB", Kind::Read, 256 * kibi, {1.25, 1.25}},
        {"read/1MiB", Kind::Read, mebi, {1.4, 1.6}},
        {"read/8MiB", Kind::Read, 8 * mebi, {2.0, 2.0}},
    };
    const std::map<std::string, Transport> transports{{"unix", Transport::Unix},
                                                      {"tcp", Transport::Tcp}};
    const auto add = [](const std::string& name, auto function, auto... arguments) {
        benchmark::RegisterBenchmark(name.c_str(), function, arguments...)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    };
    for (const auto& [transportName, transport] : transports) {
        const bool isUnix = transport == Transport::Unix;
        for (const Line& line : lines) {
            add(transportName + "/two/" + line.name, AgainstBare, transport, Placing::Two,
                line.kind, line.size, isUnix ? line.goals.unixSocket : line.goals.tcp);
        }
        for (const Line& line : lines) {
            if (line.size <= 4 * kibi) {
                add(transportName + "/one/" + line.name, AgainstBare, transport, Placing::One,
                    line.kind, line.size, 1.2);
            }
        }
        add(transportName + "/one/polling", PollingAgainstBlocking, transport, Placing::One, false,
            1.05);
        add(transportName + "/busy/polling", PollingAgainstBlocking, transport, Placing::Two, true,
            1.0);
        add(transportName + "/ten/polling", TenClients, transport, 1.05);
    }
}

}  // namespace
}  // namespace Brantel::Bench

int main(int argc, char** argv) {
    Brantel::Bench::RegisterAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
