#include "Media/LineSplitter.h"

#include <stdexcept>
#include <string_view>

namespace Brantel::Tool {

bool LineSplitter::Take(std::string& piece) {
    const std::string_view view = View();
    const std::size_t end = view.find('\n', searched);
    searched = view.size();
    const std::size_t size = end == std::string_view::npos ? view.size() : end + 1;
    if (size > limit) {
        throw std::runtime_error("The line that begins at byte " + std::to_string(Offset()) +
                                 " is over the limit of " + std::to_string(limit) + " bytes");
    }
    if (end == std::string_view::npos && (!finished || view.empty())) {
        return false;
    }
    Cut(size, piece);
    searched = 0;
    return true;
}

}  // namespace Brantel::Tool
