#pragma once

#include <cstddef>
#include <string>

namespace Brantel::Services {

// Makes a text `size` bytes long, not shorter than it is. What it holds stays; the new bytes have
// any value, and the caller overwrites them. Saves the pass over the memory that filling it with
// zeros would cost.
void ResizeForOverwrite(std::string& text, std::size_t size);

}  // namespace Brantel::Services
