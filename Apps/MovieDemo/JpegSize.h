#pragma once

#include <string_view>

namespace Brantel::MovieDemo {

// Width and height of a JPEG picture, in pixels. A value.
struct JpegSize {
    // Reads the picture's frame header. Throws std::runtime_error when the bytes are no JPEG
    // picture or it has no such header.
    static JpegSize Of(std::string_view picture);

    bool operator==(const JpegSize&) const = default;

    unsigned int width = 0;
    unsigned int height = 0;
};

}  // namespace Brantel::MovieDemo
