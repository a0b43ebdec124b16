#include "Workers.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Brantel::Tracks {

Workers::Worker::Worker(Workers& workers, Description description)
    : workers(workers),
      description(std::move(description)),
      id([&workers] {
          const std::lock_guard lock(workers.mutex);
          if (workers.open.size() >= workers.limit) {
              throw std::runtime_error(std::to_string(workers.open.size()) +
                                       " readers and writers are open, the limit is " +
                                       std::to_string(workers.limit));
          }
          return ++workers.lastId;
      }()),
      throughput(workers.clock()),
      lastCall(workers.clock().time_since_epoch().count()) {
    const std::lock_guard lock(workers.mutex);
    workers.open.emplace(id, this);
}

Workers::Worker::~Worker() {
    const std::lock_guard lock(workers.mutex);
    workers.open.erase(id);
}

void Workers::Worker::Count(std::uint64_t bytes) {
    const auto now = workers.clock();
    lastCall.store(now.time_since_epoch().count(), std::memory_order_relaxed);
    throughput.Add(now, bytes);
}

std::unique_ptr<Workers::Worker> Workers::Open(const Description& description) {
    return std::make_unique<Worker>(*this, description);
}

void Workers::List(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    const std::lock_guard lock(mutex);
    for (const auto& [id, worker] : open) {
        workerIds.add_ids(static_cast<std::uint64_t>(id));
        trackIds.add_ids(static_cast<std::uint64_t>(worker->description.trackId));
    }
}

void Workers::Describe(const Protocol::Ids& workerIds, Protocol::WorkerInfos& infos) {
    const auto now = clock();
    const std::lock_guard lock(mutex);
    for (const std::uint64_t id : workerIds.ids()) {
        Protocol::WorkerInfo& info = *infos.add_infos();
        info.set_workerid(id);
        const auto found = open.find(static_cast<std::int64_t>(id));
        if (found == open.end()) {
            info.set_type(Protocol::WorkerInfo::NONE);
            continue;
        }
        const Worker& worker = *found->second;
        info.set_type(worker.description.type);
        info.set_trackid(static_cast<std::uint64_t>(worker.description.trackId));
        info.set_connectionid(static_cast<std::uint64_t>(worker.description.connectionId));
        info.set_throughput(worker.throughput.GetBytesPerSecond(now));
        info.set_clientipv4address(worker.description.clientIpV4Address);
    }
}

std::vector<WorkerStatus> Workers::GetStatus() {
    std::vector<WorkerStatus> list;
    const auto now = clock();
    const std::lock_guard lock(mutex);
    list.reserve(open.size());
    for (const auto& [id, worker] : open) {
        const Throughput::TimePoint lastCall(
            Throughput::TimePoint::duration(worker->lastCall.load(std::memory_order_relaxed)));
        WorkerStatus& status = list.emplace_back();
        status.id = id;
        status.isWriter = worker->description.type == Protocol::WorkerInfo::WRITER;
        status.track = worker->description.trackId;
        status.connection = worker->description.connectionId;
        status.clientIpV4Address = worker->description.clientIpV4Address;
        status.bytesPerSecond = worker->throughput.GetBytesPerSecond(now);
        status.idle =
            std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(now - lastCall));
        status.position = worker->position.load(std::memory_order_relaxed);
    }
    return list;
}

}  // namespace Brantel::Tracks
