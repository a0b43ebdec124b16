#pragma once

#include <libEngine/IEngine.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace Brantel::Engine {

// One store in a test: an engine, and what can happen to it from outside.
class IEngineHarness {
  public:
    virtual ~IEngineHarness() = default;

    // The engine as it is open now; another object after Restart or Crash.
    virtual IEngine& GetEngine() = 0;

    // Ends the engine in good order and opens the store again. Nobody uses the former engine any
    // more.
    virtual void Restart() = 0;

    // Opens a copy of the store as a crash of the process at this instant leaves it. The former
    // engine lives on, cut off from the copy, until the next call or the harness's end: its users
    // can be thrown away afterwards without touching what the crash left.
    virtual void Crash() = 0;

    // Damages one stored, non-empty part of a chunk, as a failing medium would.
    virtual void DamageChunk(const SegmentId& id, const ChunkEntry& entry, std::size_t part) = 0;
};

// What a suite of tests is parameterised by: a name and how to make a store that can hold at least
// `limit` bytes and refuses more.
struct EngineHarnessFactory {
    std::string name;
    std::function<std::unique_ptr<IEngineHarness>(std::uint64_t limit)> make;
};

inline std::ostream& operator<<(std::ostream& stream, const EngineHarnessFactory& factory) {
    return stream << factory.name;
}

}  // namespace Brantel::Engine
