#pragma once

#include "Support/EngineHarness.h"
#include "Support/FaultyEngine.h"

#include <libEngine/Memory/MemoryEngine.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace Brantel::Engine {

// A store in memory. Its crash goes on with a copy of what was stored, so that nothing that lived
// in the abandoned objects helps.
class MemoryHarness : public IEngineHarness {
  public:
    explicit MemoryHarness(std::uint64_t limit) : engine(std::make_unique<MemoryEngine>(limit)) {}

    IEngine& GetEngine() override { return *engine; }
    void Restart() override { engine = engine->Clone(); }
    void Crash() override {
        former = std::move(engine);
        engine = former->Clone();
    }
    void DamageChunk(const SegmentId& id, const ChunkEntry& entry, std::size_t part) override {
        engine->FlipBit(id, entry, part);
    }

  private:
    std::unique_ptr<MemoryEngine> former;
    std::unique_ptr<MemoryEngine> engine;
};

// The same with a FaultyEngine around it, which does nothing until it is told to.
class FaultyMemoryHarness : public IEngineHarness {
  public:
    explicit FaultyMemoryHarness(std::uint64_t limit)
        : engine(std::make_unique<MemoryEngine>(limit)),
          faulty(std::make_unique<FaultyEngine>(*engine)) {}

    IEngine& GetEngine() override { return *faulty; }
    FaultyEngine& GetFaulty() { return *faulty; }
    void Restart() override { Crash(); }
    void Crash() override {
        former = std::move(engine);
        formerFaulty = std::move(faulty);
        engine = former->Clone();
        faulty = std::make_unique<FaultyEngine>(*engine);
    }
    void DamageChunk(const SegmentId& id, const ChunkEntry& entry, std::size_t part) override {
        engine->FlipBit(id, entry, part);
    }

  private:
    std::unique_ptr<MemoryEngine> former;
    std::unique_ptr<FaultyEngine> formerFaulty;
    std::unique_ptr<MemoryEngine> engine;
    std::unique_ptr<FaultyEngine> faulty;
};

inline EngineHarnessFactory MemoryHarnessFactory() {
    return {"Memory", [](std::uint64_t limit) { return std::make_unique<MemoryHarness>(limit); }};
}

inline EngineHarnessFactory FaultyMemoryHarnessFactory() {
    return {"FaultyMemory",
            [](std::uint64_t limit) { return std::make_unique<FaultyMemoryHarness>(limit); }};
}

}  // namespace Brantel::Engine
