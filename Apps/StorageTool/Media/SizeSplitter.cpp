#include "Media/SizeSplitter.h"

namespace Brantel::Tool {

bool SizeSplitter::Take(std::string& piece) {
    const std::size_t size = View().size();
    if (size == 0 || (size < limit && !finished)) {
        return false;
    }
    Cut(limit, piece);
    return true;
}

}  // namespace Brantel::Tool
