#pragma once

#include "Local/FolderCalls.h"

#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace Brantel::Engine {

// What is promised to tracks, and what can still be. Thread-safe.
class SpaceBudget {
  public:
    // `limit`: bytes that can be promised at most, 0: what the medium has. `keepFree`: bytes of the
    // medium that are never promised.
    SpaceBudget(const FolderCalls& folders, std::string folder, std::uint64_t limit,
                std::uint64_t keepFree)
        : folders(folders), folder(std::move(folder)), limit(limit), keepFree(keepFree) {}

    Space GetSpace() const;

    // Promises `bytes`, none of which have been taken from the medium. Throws NoSpace.
    void Promise(std::uint64_t bytes);
    // Counts what was promised by an earlier run: `missing` of it is still to be taken.
    void Adopt(std::uint64_t bytes, std::uint64_t missing);
    // `bytes` of a promise have been taken from the medium.
    void NoteTaken(std::uint64_t bytes);
    // Ends a promise; `missing` of it had not been taken.
    void GiveBack(std::uint64_t bytes, std::uint64_t missing);

  private:
    Space GetSpaceLocked() const;

    const FolderCalls& folders;
    const std::string folder;
    const std::uint64_t limit;
    const std::uint64_t keepFree;
    mutable std::mutex mutex;
    // guarded by mutex
    std::uint64_t reserved = 0;
    std::uint64_t missingBytes = 0;
};

}  // namespace Brantel::Engine
