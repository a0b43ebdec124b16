#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

namespace Brantel::Tracks {

// The space that was promised to commands that the engine does not know of yet. Thread-safe.
class SpacePromises {
  public:
    // `engine` is borrowed.
    explicit SpacePromises(Engine::IEngine& engine) : engine(engine) {}

    // What can still be promised, in bytes.
    std::uint64_t GetAvailable();

    // Runs `take(available)`, which throws or returns the bytes to promise to the command: nobody
    // else promises anything between the look and the promise.
    void Promise(std::int64_t commandId, const std::function<std::uint64_t(std::uint64_t)>& take);
    // The engine counts it now, or it is not needed. Nothing for an unknown command.
    void Forget(std::int64_t commandId);

  private:
    std::uint64_t GetAvailableLocked();

    Engine::IEngine& engine;
    std::mutex mutex;
    // guarded by mutex
    std::map<std::int64_t, std::uint64_t> promised;  // bytes by command
};

}  // namespace Brantel::Tracks
