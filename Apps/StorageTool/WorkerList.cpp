#include "WorkerList.h"

namespace Brantel::Tool {

using ProtocolX::StorageClientX;

std::vector<WorkerList::Worker> WorkerList::Read(StorageClientX& client) {
    std::vector<long> ids;
    for (const auto& [worker, track] : client.GetWorkerIds()) {
        ids.push_back(worker);
    }
    std::vector<Worker> workers;
    if (ids.empty()) {
        return workers;
    }
    for (const Worker& worker : client.GetWorkerInfos(ids)) {
        if (worker.type != StorageClientX::NONE) {
            workers.push_back(worker);
        }
    }
    return workers;
}

std::string WorkerList::TypeOf(const Worker& worker) {
    return worker.type == StorageClientX::WRITER ? "writer" : "reader";
}

}  // namespace Brantel::Tool
