#pragma once

#include <StorageTool/Pictures/JpegDecoder.h>

#include <string>

namespace Brantel::Tool {

// A picture as text for a terminal: each character shows two pixels, one above the other, in 24 bit
// colors; or, without block characters, one as a grey of ten characters.
struct BlockPicture {
    struct Size {
        int columns = 0;
        int rows = 0;
    };

    // The largest size within `room` in which the picture keeps its shape; at least 1 by 1.
    static Size Fit(int width, int height, Size room);

    // Lines, each with its end.
    static std::string Blocks(const Picture& picture, Size size);
    static std::string Letters(const Picture& picture, Size size);
};

}  // namespace Brantel::Tool
