#pragma once

#include <atomic>
#include <cstdint>

namespace Brantel::Server {

// How often the limits of the calls refused one. Counts up while the server runs; thread-safe.
struct RefusalCounters {
    std::atomic<std::uint64_t> workers{0};  // readers and writers on one connection
    std::atomic<std::uint64_t> ids{0};      // ids in one request
};

}  // namespace Brantel::Server
