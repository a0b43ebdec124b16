#include "Benching/Bench.h"

#include "CommandWatch.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;
using Time::TimePoint;

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::int64_t chunkNanoseconds = 1'000'000;
constexpr const char* key = "data";

std::string RandomBytes(std::int64_t size) {
    std::mt19937_64 random(1);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

}  // namespace

Bench::Bench(Context& context, const Plan& plan) : context(context), plan(plan) {
    try {
        for (int i = 0; i < std::max(1, plan.writers); ++i) {
            MakeTrack();
        }
    } catch (const std::exception&) {
        DeleteTracks();
        throw;
    }
}

Bench::~Bench() {
    DeleteTracks();
}

void Bench::MakeTrack() {
    Client::TrackParameters wanted;
    wanted.size = plan.trackSize;
    const auto made = context.Ask([&](Client& client) { return client.CreateTrack(wanted); });
    tracks.push_back(made.id);
    CommandWatch(context, "Creating track " + std::to_string(made.id), made.size)
        .Follow(made.commandId);
    if (!plan.durability.empty()) {
        context.Ask([&](Client& client) {
            client.SetTrackProperties(made.id, {{"storage.durability", plan.durability}});
        });
    }
}

// Says what could not be deleted; whatever is thrown here would hide why the measurement ended.
void Bench::DeleteTracks() {
    for (const long track : std::exchange(tracks, {})) {
        std::string reason;
        while (!TryDelete(track, reason)) {
            // Interrupted while it was made, which goes on.
            if (reason.find("is being created") == std::string::npos) {
                Context::Warn("Track " + std::to_string(track) +
                              " of this measurement is left: " + reason);
                break;
            }
            constexpr std::chrono::milliseconds pause(10);
            std::this_thread::sleep_for(pause);
        }
    }
}

bool Bench::TryDelete(long track, std::string& reason) {
    try {
        context.Ask([&](Client& client) { client.DeleteTrack(track); });
        return true;
    } catch (const std::runtime_error& error) {
        reason = error.what();
        return false;
    }
}

std::string Bench::Durability() {
    const auto properties =
        context.Ask([&](Client& client) { return client.GetTrackProperties(tracks.front()); });
    const auto found = properties.find("storage.durability");
    return found == properties.end() ? "that of the server" : found->second;
}

Bench::Result Bench::Append() {
    const std::string bytes = RandomBytes(plan.chunkSize);
    return Run("append", plan.writers, [&](Client& client, int number) -> Work {
        ProtocolX::IStorageWriterX* const writer =
            client.GetTrackWriter(tracks[static_cast<std::size_t>(number)]);
        const auto chunk = std::make_shared<DataChunk>();
        chunk->SetDuration(TimePoint::Nanoseconds(chunkNanoseconds));
        chunk->SetData(key, bytes);
        return [this, writer, chunk, time = std::int64_t{0}]() mutable {
            chunk->SetTimePoint(TimePoint::Nanoseconds(time));
            writer->Append(*chunk);
            time += chunkNanoseconds;
            return plan.chunkSize;
        };
    });
}

Bench::Result Bench::Read() {
    return Run("read", plan.readers, [&](Client& client, int number) -> Work {
        const long track = tracks[static_cast<std::size_t>(number) % tracks.size()];
        ProtocolX::IStorageReaderX* const reader = client.GetTrackReader(track, 0);
        const std::int64_t first = reader->FirstTimePoint().ToNanoseconds() / chunkNanoseconds;
        const std::int64_t last = reader->LastTimePoint().ToNanoseconds() / chunkNanoseconds;
        if (reader->FirstTimePoint() < TimePoint()) {
            throw std::runtime_error("There is nothing to read: no chunk was appended");
        }
        const auto chunk = std::make_shared<DataChunk>();
        return [reader, chunk, random = std::mt19937_64(static_cast<std::uint64_t>(number)),
                pick = std::uniform_int_distribution<std::int64_t>(first, last)]() mutable {
            const TimePoint time = TimePoint::Nanoseconds(pick(random) * chunkNanoseconds);
            return reader->GetChunk(*chunk, time, {})
                       ? static_cast<std::int64_t>(chunk->GetData(key).size())
                       : std::int64_t{0};
        };
    });
}

Bench::Result Bench::Run(const std::string& operation, int threads, const MakeWork& makeWork) {
    Result result;
    result.operation = operation;
    result.threads = threads;
    std::mutex mutex;
    std::exception_ptr failure;
    std::atomic<int> ready = 0;
    std::atomic<bool> ended = false;
    const auto measure = [&](int number) {
        try {
            const auto client = context.Connect();
            Work work = makeWork(*client, number);
            LatencyCounts latencies;
            std::int64_t bytes = 0;
            ++ready;
            while (ready < threads && !ended) {
                std::this_thread::yield();
            }
            const Clock::time_point begin = Clock::now();
            Clock::time_point now = begin;
            while (!ended && now - begin < plan.duration && !context.Ends().Requested()) {
                const Interrupts::Call call(context.Ends());
                bytes += work();
                const Clock::time_point after = Clock::now();
                latencies.Add((after - now).count());
                now = after;
            }
            const std::lock_guard lock(mutex);
            result.latencies.Add(latencies);
            result.bytes += bytes;
            result.seconds =
                std::max(result.seconds, std::chrono::duration<double>(now - begin).count());
        } catch (const std::exception&) {
            const std::lock_guard lock(mutex);
            failure = std::current_exception();
            ended = true;
        }
    };
    std::vector<std::thread> running;
    running.reserve(static_cast<std::size_t>(threads));
    for (int number = 0; number < threads; ++number) {
        running.emplace_back(measure, number);
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    context.CheckInterrupt("Interrupted after " + std::to_string(result.latencies.Count()) +
                           " chunks of " + operation + ", too few for a result");
    return result;
}

}  // namespace Brantel::Tool
