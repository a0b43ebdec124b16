#include "Local/SpaceBudget.h"

#include "EngineError.h"

#include <algorithm>

namespace Brantel::Engine {

namespace {

std::uint64_t Less(std::uint64_t whole, std::uint64_t part) {
    return whole - std::min(whole, part);
}

}  // namespace

Space SpaceBudget::GetSpaceLocked() const {
    const std::uint64_t free = Less(Less(folders.GetFreeSpace(folder), keepFree), missingBytes);
    const std::uint64_t unpromised = limit == 0 ? free : Less(limit, reserved);
    return Space{limit, reserved, std::min(free, unpromised)};
}

Space SpaceBudget::GetSpace() const {
    const std::lock_guard lock(mutex);
    return GetSpaceLocked();
}

void SpaceBudget::Promise(std::uint64_t bytes) {
    const std::lock_guard lock(mutex);
    const Space space = GetSpaceLocked();
    if (bytes > space.available) {
        throw EngineError(EngineError::Kind::NoSpace,
                          folder + ": " + std::to_string(bytes) + " bytes are more than the " +
                              std::to_string(space.available) + " that can still be reserved");
    }
    reserved += bytes;
    missingBytes += bytes;
}

void SpaceBudget::Adopt(std::uint64_t bytes, std::uint64_t missing) {
    const std::lock_guard lock(mutex);
    reserved += bytes;
    missingBytes += missing;
}

void SpaceBudget::NoteTaken(std::uint64_t bytes) {
    const std::lock_guard lock(mutex);
    missingBytes -= std::min(bytes, missingBytes);
}

void SpaceBudget::GiveBack(std::uint64_t bytes, std::uint64_t missing) {
    const std::lock_guard lock(mutex);
    reserved -= std::min(bytes, reserved);
    missingBytes -= std::min(missing, missingBytes);
}

}  // namespace Brantel::Engine
