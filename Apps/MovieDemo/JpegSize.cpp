#include "JpegSize.h"

#include <cstddef>
#include <stdexcept>

namespace Brantel::MovieDemo {

namespace {

unsigned int ByteAt(std::string_view bytes, std::size_t offset) {
    if (offset >= bytes.size()) {
        throw std::runtime_error("JPEG picture of " + std::to_string(bytes.size()) +
                                 " bytes has no frame header");
    }
    return static_cast<unsigned char>(bytes[offset]);
}

unsigned int NumberAt(std::string_view bytes, std::size_t offset) {
    return ByteAt(bytes, offset) << 8U | ByteAt(bytes, offset + 1);
}

// The markers of frame headers are C0 to CF, but for three of another meaning.
bool BeginsFrame(unsigned int marker) {
    return marker >= 0xFFC0 && marker <= 0xFFCF && marker != 0xFFC4 && marker != 0xFFC8 &&
           marker != 0xFFCC;
}

}  // namespace

// A picture is FFD8 and then segments: a marker of two bytes, a length of two that counts itself,
// and the contents. In a frame header these are a byte, the height and the width.
JpegSize JpegSize::Of(std::string_view picture) {
    constexpr unsigned int start = 0xFFD8;
    if (picture.size() < 2 || NumberAt(picture, 0) != start) {
        throw std::runtime_error("These " + std::to_string(picture.size()) +
                                 " bytes are no JPEG picture");
    }
    std::size_t segment = 2;
    while (!BeginsFrame(NumberAt(picture, segment))) {
        segment += 2 + NumberAt(picture, segment + 2);
    }
    return {NumberAt(picture, segment + 7), NumberAt(picture, segment + 5)};
}

}  // namespace Brantel::MovieDemo
