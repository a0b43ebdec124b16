#include "Media/HeldBytes.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Brantel::Tool {

char* HeldBytes::Room(std::size_t size) {
    const std::size_t held = end - begin;
    if (capacity - end < size) {
        // Moved to the front only when at least as much is gone as is left, else into twice the
        // memory: linear over all.
        if (begin >= held && capacity - held >= size) {
            std::memmove(bytes.get(), bytes.get() + begin, held);
        } else {
            const std::size_t larger = std::max(2 * capacity, held + size);
            // Not filled with zeros first, as a string or a vector would be.
            // NOLINTNEXTLINE(*-avoid-c-arrays)
            std::unique_ptr<char[]> moved(new char[larger]);
            if (held > 0) {
                std::memcpy(moved.get(), bytes.get() + begin, held);
            }
            bytes = std::move(moved);
            capacity = larger;
        }
        begin = 0;
        end = held;
    }
    return bytes.get() + end;
}

void HeldBytes::Cut(std::size_t size, std::string& piece) {
    const std::string_view view = View().substr(0, size);
    piece.assign(view);
    begin += view.size();
    offset += view.size();
}

}  // namespace Brantel::Tool
