#pragma once

#include <cstddef>
#include <string>

namespace Brantel::Tracks {

// Gives an empty text `size` bytes of any content, which the caller overwrites. Saves the pass over
// the memory that filling a large data block with zeros would cost. libServices has one of its own:
// other platform libraries, which may take the place of ours, need not have one.
void ResizeForOverwrite(std::string& text, std::size_t size);

}  // namespace Brantel::Tracks
