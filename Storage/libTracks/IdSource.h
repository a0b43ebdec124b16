#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <mutex>
#include <string>

namespace Brantel::Tracks {

// Gives out numbers from 1 on, none of them twice, also not after a crash. It remembers in a record
// of the engine up to where it may go, and writes that only once for many numbers; after a crash
// the rest of those is skipped. Thread-safe; sometimes blocks.
class IdSource {
  public:
    // The records that it remembers in.
    static constexpr const char* commandIds = "ids/command";
    static constexpr const char* protectionIds = "ids/protection";

    // `engine` is borrowed.
    IdSource(Engine::IEngine& engine, std::string key);

    std::int64_t Next();
    // Gives the unused rest back, before a server ends in good order.
    void Settle();

  private:
    static constexpr std::int64_t block = 100;

    void Write(std::int64_t value);

    Engine::IEngine& engine;
    const std::string key;
    std::mutex mutex;
    // guarded by mutex
    std::int64_t last = 0;   // given out
    std::int64_t bound = 0;  // may be given out without writing
};

}  // namespace Brantel::Tracks
