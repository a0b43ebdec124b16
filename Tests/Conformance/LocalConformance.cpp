#include "Conformance/EngineConformanceTest.h"
#include "Support/LocalHarness.h"

#include <gtest/gtest.h>

namespace Brantel::Engine {

INSTANTIATE_TEST_SUITE_P(Local, EngineConformanceTest, testing::Values(LocalHarnessFactory()),
                         testing::PrintToStringParamName());

}  // namespace Brantel::Engine
