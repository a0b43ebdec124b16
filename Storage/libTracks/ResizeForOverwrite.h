#pragma once

#include <cstddef>
#include <string>

namespace Brantel::Tracks {

// Gives an empty text `size` bytes of any content, which the caller overwrites. Saves the pass over
// the memory that filling a large data block with zeros would cost.
void ResizeForOverwrite(std::string& text, std::size_t size);

}  // namespace Brantel::Tracks
