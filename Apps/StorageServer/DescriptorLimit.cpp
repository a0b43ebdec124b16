#include "DescriptorLimit.h"

#include <sys/resource.h>

namespace Brantel::Server {

std::string RaiseDescriptorLimit(std::uint64_t connections) {
    // The files of the tracks that are kept open, listeners, logs.
    constexpr std::uint64_t others = 512;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return {};
    }
    if (limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            getrlimit(RLIMIT_NOFILE, &limit);
        }
    }
    if (limit.rlim_cur >= connections + others) {
        return {};
    }
    return "The system allows " + std::to_string(limit.rlim_cur) +
           " open files, too few for max-connections " + std::to_string(connections) +
           ": raise the limit (LimitNOFILE, ulimit -n) to " + std::to_string(connections + others) +
           " or lower max-connections";
}

}  // namespace Brantel::Server
