#include "Workers.h"

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
      throughput(workers.clock()) {
    const std::lock_guard lock(workers.mutex);
    workers.open.emplace(id, this);
}

Workers::Worker::~Worker() {
    const std::lock_guard lock(workers.mutex);
    workers.open.erase(id);
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

}  // namespace Brantel::Tracks
