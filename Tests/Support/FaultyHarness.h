#pragma once

#include "Support/EngineHarness.h"
#include "Support/FaultyEngine.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace Brantel::Engine {

// Any store with a FaultyEngine around its engine, which does nothing until it is told to. After a
// restart or a crash it is another one.
class FaultyHarness : public IEngineHarness {
  public:
    explicit FaultyHarness(std::unique_ptr<IEngineHarness> store)
        : inner(std::move(store)), faulty(std::make_unique<FaultyEngine>(inner->GetEngine())) {}

    IEngine& GetEngine() override { return *faulty; }
    FaultyEngine& GetFaulty() { return *faulty; }
    void Restart() override {
        inner->Restart();
        former.reset();
        faulty = std::make_unique<FaultyEngine>(inner->GetEngine());
    }
    void Crash() override {
        inner->Crash();
        former = std::move(faulty);
        faulty = std::make_unique<FaultyEngine>(inner->GetEngine());
    }
    void DamageChunk(const SegmentId& id, const ChunkEntry& entry, std::size_t part) override {
        inner->DamageChunk(id, entry, part);
    }

  private:
    const std::unique_ptr<IEngineHarness> inner;
    std::unique_ptr<FaultyEngine> former;
    std::unique_ptr<FaultyEngine> faulty;
};

}  // namespace Brantel::Engine
