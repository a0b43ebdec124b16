#include "FrameMeter.h"

#include <array>
#include <cstdio>

namespace Brantel::MovieDemo {

std::string FrameMeter::Text() const {
    constexpr double bytesOfMegabyte = 1e6;
    const double seconds = std::chrono::duration<double>(elapsed).count();
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%.0f frames/s, %.1f MB/s",
                  static_cast<double>(frames) / seconds,
                  static_cast<double>(bytes) / bytesOfMegabyte / seconds);
    return text.data();
}

}  // namespace Brantel::MovieDemo
