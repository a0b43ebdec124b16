#include "Conformance/EngineConformanceTest.h"
#include "Support/MemoryHarness.h"

#include <gtest/gtest.h>

namespace Brantel::Engine {

INSTANTIATE_TEST_SUITE_P(Memory, EngineConformanceTest, testing::Values(MemoryHarnessFactory()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Faulty, EngineConformanceTest,
                         testing::Values(FaultyMemoryHarnessFactory()),
                         testing::PrintToStringParamName());

}  // namespace Brantel::Engine
