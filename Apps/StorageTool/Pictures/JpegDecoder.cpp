#include "Pictures/JpegDecoder.h"

#include <turbojpeg.h>

#include <new>
#include <stdexcept>
#include <string>

namespace Brantel::Tool {

void JpegDecoder::Closer::operator()(void* handle) const {
    tjDestroy(handle);
}

JpegDecoder::JpegDecoder() : handle(tjInitDecompress()) {
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
}

Picture JpegDecoder::Decode(std::string_view jpeg, int width, int height) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    Picture picture;
    int subsampling = 0;
    int colorSpace = 0;
    if (tjDecompressHeader3(handle.get(), bytes, jpeg.size(), &picture.width, &picture.height,
                            &subsampling, &colorSpace) != 0) {
        throw std::runtime_error(tjGetErrorStr2(handle.get()));
    }
    int count = 0;
    const tjscalingfactor* const factors = tjGetScalingFactors(&count);
    const int fullWidth = picture.width;
    const int fullHeight = picture.height;
    for (int i = 0; i < count; ++i) {
        const int scaledWidth = TJSCALED(fullWidth, factors[i]);
        const int scaledHeight = TJSCALED(fullHeight, factors[i]);
        if (scaledWidth >= width && scaledHeight >= height && scaledWidth < picture.width) {
            picture.width = scaledWidth;
            picture.height = scaledHeight;
        }
    }
    const std::size_t pixels =
        static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height);
    if (pixels > mostPixels) {
        throw std::runtime_error("the picture has " + std::to_string(fullWidth) + " x " +
                                 std::to_string(fullHeight) + " pixels");
    }
    picture.pixels.resize(pixels * static_cast<std::size_t>(tjPixelSize[TJPF_RGB]));
    if (tjDecompress2(handle.get(), bytes, jpeg.size(), picture.pixels.data(), picture.width, 0,
                      picture.height, TJPF_RGB, TJFLAG_FASTDCT | TJFLAG_FASTUPSAMPLE) != 0 &&
        tjGetErrorCode(handle.get()) == TJERR_FATAL) {
        throw std::runtime_error(tjGetErrorStr2(handle.get()));
    }
    return picture;
}

}  // namespace Brantel::Tool
