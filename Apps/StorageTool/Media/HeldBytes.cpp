#include "Media/HeldBytes.h"

namespace Brantel::Tool {

void HeldBytes::Append(std::string_view more) {
    // Moved to the front only when at least as much is gone as is left: linear over all.
    if (begin >= bytes.size() - begin) {
        bytes.erase(0, begin);
        begin = 0;
    }
    bytes.append(more);
}

void HeldBytes::Cut(std::size_t size, std::string& piece) {
    piece.assign(bytes, begin, size);
    begin += piece.size();
    offset += piece.size();
}

}  // namespace Brantel::Tool
