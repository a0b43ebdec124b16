#pragma once

#include "Throughput.h"

#include <CommonMessages.pb.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Brantel::Tracks {

// The open readers and writers of all connections. Thread-safe.
class Workers {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    struct Description {
        Protocol::WorkerInfo::Type type = Protocol::WorkerInfo::NONE;
        std::int64_t trackId = 0;
        std::int64_t connectionId = 0;
        std::string clientIpV4Address;
    };

    // One open reader or writer, listed for as long as it lives.
    class Worker {
      public:
        Worker(Workers& workers, Description description);
        ~Worker();
        Worker(const Worker&) = delete;
        Worker& operator=(const Worker&) = delete;

        // Payload that it has read or written. By one thread at a time.
        void Count(std::uint64_t bytes) { throughput.Add(workers.clock(), bytes); }

      private:
        friend class Workers;

        Workers& workers;
        const Description description;
        const std::int64_t id;
        Throughput throughput;
    };

    Workers(Clock clock, std::size_t limit) : clock(std::move(clock)), limit(limit) {}

    // Throws std::runtime_error when too many are open.
    std::unique_ptr<Worker> Open(const Description& description);

    void List(Protocol::Ids& workerIds, Protocol::Ids& trackIds);
    // One record for each identifier, in their order; type NONE where nobody has it.
    void Describe(const Protocol::Ids& workerIds, Protocol::WorkerInfos& infos);

  private:
    const Clock clock;
    const std::size_t limit;
    std::mutex mutex;
    // guarded by mutex
    std::int64_t lastId = 0;
    std::map<std::int64_t, Worker*> open;  // borrowed
};

}  // namespace Brantel::Tracks
