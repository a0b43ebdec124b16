#pragma once

#include <libProtocolX/StorageClientX.h>

#include <string>
#include <vector>

namespace Brantel::Tool {

// The open readers and writers of all clients.
struct WorkerList {
    using Worker = ProtocolX::StorageClientX::WorkerInfo;

    // Two exchanges; whoever ends between them is left out.
    static std::vector<Worker> Read(ProtocolX::StorageClientX& client);

    // "reader" or "writer".
    static std::string TypeOf(const Worker& worker);
};

}  // namespace Brantel::Tool
