// The one source that is compiled as C++23, for the string operation that this is about.
#include "ResizeForOverwrite.h"

namespace Brantel::Tracks {

void ResizeForOverwrite(std::string& text, std::size_t size) {
    text.resize_and_overwrite(size, [](char*, std::size_t count) { return count; });
}

}  // namespace Brantel::Tracks
