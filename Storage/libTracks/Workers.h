#pragma once

#include "StorageStatus.h"
#include "Throughput.h"

#include <CommonMessages.pb.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

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

        // Both by one thread at a time. A call, and the payload that it has read or written.
        void Count(std::uint64_t bytes);
        // The chunk that it has come to.
        void MoveTo(std::int64_t timePoint) {
            position.store(timePoint, std::memory_order_relaxed);
        }

      private:
        friend class Workers;

        Workers& workers;
        const Description description;
        const std::int64_t id;
        Throughput throughput;
        std::atomic<Throughput::TimePoint::rep> lastCall;  // by the clock
        std::atomic<std::int64_t> position = -1;
    };

    Workers(Clock clock, std::size_t limit) : clock(std::move(clock)), limit(limit) {}

    // Throws std::runtime_error when too many are open.
    std::unique_ptr<Worker> Open(const Description& description);

    void List(Protocol::Ids& workerIds, Protocol::Ids& trackIds);
    // One record for each identifier, in their order; type NONE where nobody has it.
    void Describe(const Protocol::Ids& workerIds, Protocol::WorkerInfos& infos);
    // All of them, but for their lag.
    std::vector<WorkerStatus> GetStatus();

  private:
    const Clock clock;
    const std::size_t limit;
    std::mutex mutex;
    // guarded by mutex
    std::int64_t lastId = 0;
    std::map<std::int64_t, Worker*> open;  // borrowed
};

}  // namespace Brantel::Tracks
