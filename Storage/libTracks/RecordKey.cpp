#include "RecordKey.h"

#include <charconv>
#include <stdexcept>
#include <system_error>

namespace Brantel::Tracks {

std::int64_t NumberInKey(const std::string& key, const std::string& prefix) {
    std::int64_t number = 0;
    const char* end = key.data() + key.size();
    const auto [stop, error] = std::from_chars(key.data() + prefix.size(), end, number);
    if (error != std::errc() || stop != end) {
        throw std::runtime_error("The store has a record " + key + ", which has no number");
    }
    return number;
}

}  // namespace Brantel::Tracks
