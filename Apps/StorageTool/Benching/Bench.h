#pragma once

#include "Benching/LatencyCounts.h"
#include "Context.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tool {

// Measures the storage with tracks of its own, which it deletes at the end, however it ends. Each
// thread has a connection of its own.
class Bench {
  public:
    struct Plan {
        std::int64_t chunkSize = 0;
        int writers = 0;
        int readers = 0;
        std::chrono::nanoseconds duration{};
        std::int64_t trackSize = 0;
        // For storage.durability; empty: as the server has it.
        std::string durability;
    };
    // What one row of the report tells.
    struct Result {
        std::string operation;
        int threads = 0;
        double seconds = 0;
        std::int64_t bytes = 0;
        LatencyCounts latencies;
    };

    // Makes one track for each writer, at least one. Throws std::runtime_error.
    Bench(Context& context, const Plan& plan);
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;
    ~Bench();

    // All writers append at once, each to its own track.
    Result Append();
    // All readers read at once, the chunks of a track in a random order.
    Result Read();

    // The durability of the tracks, as found: their property, or what the server says by itself.
    std::string Durability();

  private:
    using Client = ProtocolX::StorageClientX;
    // What one thread does again and again; returns the bytes it moved.
    using Work = std::function<std::int64_t()>;
    // Makes the work of one thread with its connection.
    using MakeWork = std::function<Work(Client&, int)>;

    void MakeTrack();
    void DeleteTracks();
    bool TryDelete(long track, std::string& reason);
    Result Run(const std::string& operation, int threads, const MakeWork& makeWork);

    Context& context;
    const Plan plan;
    std::vector<long> tracks;
};

}  // namespace Brantel::Tool
