#pragma once

#include "Conformance/StorageOperation.h"
#include "Support/EngineHarness.h"

#include <libTracks/StorageOptions.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Brantel::Tracks {

// One run of operations on fresh stores of some engines, each beside a reference of its own, with
// every answer compared.
class ModelRound {
  public:
    struct Failure {
        std::size_t operation = 0;  // index
        std::string text;           // the engine, the answer that was given and the right one
    };

    // What the seed decides: the options of the storage.
    ModelRound(std::uint64_t seed, std::vector<Engine::EngineHarnessFactory> engines);

    std::optional<Failure> Run(const std::vector<StorageOperation>& operations);

    // What was answered in all runs, without the numbers, behind the name of the operation: to see
    // that everything that can happen did.
    const std::set<std::string>& GetOutcomes() const { return outcomes; }

    // Fewer operations that fail too, found by leaving some out. Takes `tries` runs at most.
    std::vector<StorageOperation> Shrink(std::vector<StorageOperation> operations,
                                         std::size_t tries);

  private:
    class Side;

    static constexpr std::uint64_t limit = 12U << 20U;

    std::vector<Engine::EngineHarnessFactory> engines;
    StorageOptions options;
    std::set<std::string> outcomes;
};

}  // namespace Brantel::Tracks
