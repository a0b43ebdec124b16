#pragma once

#include "Local/LocalOptions.h"

namespace Brantel::Engine {

// For where nothing may throw: without memory for the text it stays untold.
void Tell(const LocalReport& report, const char* text) noexcept;

}  // namespace Brantel::Engine
