#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace Brantel::Tool {

// A picture in memory: rows from the top, three bytes (red, green, blue) a pixel.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;

    const unsigned char* At(int x, int y) const {
        constexpr std::size_t bytesOfPixel = 3;
        return pixels.data() +
               bytesOfPixel * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                               static_cast<std::size_t>(x));
    }
};

// Decodes JPEG pictures. One thread.
class JpegDecoder {
  public:
    // More pixels than this, after scaling down, are refused.
    static constexpr std::size_t mostPixels = std::size_t{1} << 26U;

    JpegDecoder();

    // The picture, made smaller while it is decoded but not smaller than this, where it was not
    // already. Throws std::runtime_error with what is wrong with the bytes.
    Picture Decode(std::string_view jpeg, int width, int height);

  private:
    struct Closer {
        void operator()(void* handle) const;
    };
    std::unique_ptr<void, Closer> handle;
};

}  // namespace Brantel::Tool
