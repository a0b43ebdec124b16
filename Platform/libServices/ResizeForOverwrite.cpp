// The one source here that is compiled as C++23, for the string operation that this is about.
#include "ResizeForOverwrite.h"

namespace Brantel::Services {

void ResizeForOverwrite(std::string& text, std::size_t size) {
    // What g++ 12 hands to the operation is the capacity it took: up to twice the size.
    text.resize_and_overwrite(size, [size](char*, std::size_t) { return size; });
}

}  // namespace Brantel::Services
