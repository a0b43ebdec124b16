#pragma once

#include "Bench/StoreWorkload.h"

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace Brantel::Bench {

// What the calls of some time took.
struct Sample {
    std::vector<float> microseconds;  // of each call; of many connections, of some
    double calls = 0;
    double seconds = 0;        // of wall time
    double clientSeconds = 0;  // of processor time of all threads of this process
    double serverSeconds = 0;  // of the server's process and its children

    void Add(const Sample& other);
};

// Measures a workload on one server for about so long, on connections of its own. `placement`
// scatters the heap of this thread in one of many ways. `connections`: of a workload with many.
Sample MeasureRound(IPeer& peer, const Workload& workload, std::size_t connections, double seconds,
                    unsigned placement);

// Keeps this process on the first processor and the server's on the second one, or both on the
// first; `free`: lets them go everywhere. Threads that they start later inherit it.
enum class Placing { Two, One, Free };
void Place(pid_t server, Placing placing);

}  // namespace Brantel::Bench
