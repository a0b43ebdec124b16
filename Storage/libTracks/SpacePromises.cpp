#include "SpacePromises.h"

#include <algorithm>

namespace Brantel::Tracks {

std::uint64_t SpacePromises::GetAvailableLocked() {
    std::uint64_t available = engine.GetSpace().available;
    for (const auto& [command, bytes] : promised) {
        available -= std::min(available, bytes);
    }
    return available;
}

std::uint64_t SpacePromises::GetAvailable() {
    const std::lock_guard lock(mutex);
    return GetAvailableLocked();
}

void SpacePromises::Promise(std::int64_t commandId,
                            const std::function<std::uint64_t(std::uint64_t)>& take) {
    const std::lock_guard lock(mutex);
    const std::uint64_t available = GetAvailableLocked();
    std::uint64_t& bytes = promised[commandId];
    try {
        bytes = take(available);
    } catch (...) {
        promised.erase(commandId);
        throw;
    }
}

void SpacePromises::Forget(std::int64_t commandId) {
    const std::lock_guard lock(mutex);
    promised.erase(commandId);
}

}  // namespace Brantel::Tracks
