#pragma once

#include "Bench/Peers/Peer.h"

#include <string>
#include <vector>

namespace Brantel::Bench {

// A ratio that should be reached.
struct Goal {
    // The name of a peer, or what several names begin with; "bare": the faster of the two bare
    // exchanges; "best": the peer that is fastest beside ours; "time": none, the limit is a median
    // in microseconds.
    std::string against;
    double limit = 0;
};

struct Workload {
    enum class Kind {
        OneConnection,    // one call in flight; times are compared, at most the limit
        ManyConnections,  // a thread for each, or one; rates are compared, at least the limit
        Wake              // from the call of an append until another connection's wait has ended
    };

    std::string name;
    std::string about;
    Kind kind = Kind::OneConnection;
    Task task;
    Keeping keeping = Keeping::Memory;
    bool oneProcessor = false;  // else each end has one of its own
    std::size_t connections = 1;
    bool oneThread = false;  // has all connections
    // Beside as many connections of ours instead, too; 0: not.
    std::size_t besideConnections = 0;
    std::vector<Goal> goals;
};

// All of them, those with the same keeping one behind the other.
std::vector<Workload> AllWorkloads();

}  // namespace Brantel::Bench
