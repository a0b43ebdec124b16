#pragma once

#include "Support/EngineHarness.h"
#include "Support/LocalHarness.h"
#include "Support/MemoryHarness.h"

#include <vector>

namespace Brantel::Engine {

// The engines that every test of the tracks runs on.
inline std::vector<EngineHarnessFactory> EveryEngine() {
    return {MemoryHarnessFactory(), LocalHarnessFactory()};
}

}  // namespace Brantel::Engine
