#pragma once

#include <cstddef>

namespace Brantel::Engine {

// Copies `size` bytes between places that do not overlap, as std::memcpy does, but past the
// processor's cache where it can. For blocks of half a MiB and more that are not read soon: in the
// cache they would only take the place of the buffers that messages come and go through.
void CopyPastCache(char* destination, const char* source, std::size_t size) noexcept;

}  // namespace Brantel::Engine
