#include "Media/MjpegSplitter.h"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace Brantel::Tool {

namespace {

constexpr unsigned int markerByte = 0xFF;
constexpr unsigned int startOfImage = 0xD8;
constexpr unsigned int endOfImage = 0xD9;
constexpr unsigned int startOfScan = 0xDA;
constexpr unsigned int temporary = 0x01;
constexpr unsigned int firstWithMeaning = 0xC0;

unsigned int ByteAt(std::string_view view, std::size_t place) {
    return static_cast<unsigned char>(view[place]);
}

bool IsRestart(unsigned int marker) {
    return marker >= 0xD0 && marker <= 0xD7;
}

std::string Hex(unsigned int byte) {
    std::array<char, 3> text{};
    std::snprintf(text.data(), text.size(), "%02X", byte);
    return text.data();
}

}  // namespace

bool MjpegSplitter::Take(std::string& piece) {
    while (state != State::Whole) {
        const std::string_view view = View();
        if (Step(view)) {
            continue;
        }
        if (view.size() > limit) {
            FailByLimit();
        }
        if (finished && !view.empty()) {
            throw std::runtime_error("The stream ends at byte " +
                                     std::to_string(Offset() + view.size()) + ", within the " +
                                     PictureName());
        }
        return false;
    }
    if (position > limit) {
        FailByLimit();
    }
    Cut(position, piece);
    position = 0;
    state = State::Begin;
    return true;
}

bool MjpegSplitter::Step(std::string_view view) {
    switch (state) {
        case State::Begin: return Begin(view);
        case State::Marker: return Marker(view);
        case State::Segment: return Segment(view);
        case State::Scan: return Scan(view);
        case State::Whole: break;
    }
    return true;
}

bool MjpegSplitter::Begin(std::string_view view) {
    constexpr std::array<unsigned int, 2> start{markerByte, startOfImage};
    for (; position < start.size(); ++position) {
        if (position == view.size()) {
            return false;
        }
        if (ByteAt(view, position) != start[position]) {
            Fail(position, ByteAt(view, position), "a JPEG picture, FF D8, should begin");
        }
    }
    state = State::Marker;
    return true;
}

bool MjpegSplitter::Marker(std::string_view view) {
    if (position == view.size()) {
        return false;
    }
    if (ByteAt(view, position) != markerByte) {
        Fail(position, ByteAt(view, position), "a marker of the " + PictureName() + " should be");
    }
    // Any number of fill bytes may stand before the marker's second byte.
    while (position + 1 < view.size() && ByteAt(view, position + 1) == markerByte) {
        ++position;
    }
    if (position + 1 == view.size()) {
        return false;
    }
    Enter(ByteAt(view, position + 1));
    return true;
}

void MjpegSplitter::Enter(unsigned int marker) {
    const std::size_t place = position + 1;
    position += 2;
    if (marker == endOfImage) {
        state = State::Whole;
    } else if (marker == startOfImage) {
        Fail(place, marker, "the " + PictureName() + " has not ended");
    } else if (marker != temporary && marker < firstWithMeaning) {
        Fail(place, marker, "a marker of the " + PictureName() + " should be");
    } else if (marker != temporary && !IsRestart(marker)) {
        scanFollows = marker == startOfScan;
        state = State::Segment;
    }
}

bool MjpegSplitter::Segment(std::string_view view) {
    constexpr std::size_t lengthSize = 2;
    if (view.size() < position + lengthSize) {
        return false;
    }
    const std::size_t length = ByteAt(view, position) << 8U | ByteAt(view, position + 1);
    if (length < lengthSize) {
        Fail(position + 1, ByteAt(view, position + 1),
             "the length of a segment of the " + PictureName() + " should be at least 2");
    }
    if (view.size() < position + length) {
        return false;
    }
    position += length;
    state = scanFollows ? State::Scan : State::Marker;
    return true;
}

bool MjpegSplitter::Scan(std::string_view view) {
    for (;;) {
        position = view.find(static_cast<char>(markerByte), position);
        if (position == std::string_view::npos) {
            position = view.size();
            return false;
        }
        if (position + 1 == view.size()) {
            return false;
        }
        const unsigned int next = ByteAt(view, position + 1);
        if (next == 0 || IsRestart(next)) {
            position += 2;
        } else if (next == markerByte) {
            ++position;
        } else {
            state = State::Marker;
            return true;
        }
    }
}

std::string MjpegSplitter::PictureName() const {
    return "picture that began at byte " + std::to_string(Offset());
}

void MjpegSplitter::Fail(std::size_t place, unsigned int byte, const std::string& wanted) const {
    if (place >= limit) {
        FailByLimit();
    }
    throw std::runtime_error("Byte " + std::to_string(Offset() + place) + " is " + Hex(byte) +
                             " where " + wanted);
}

void MjpegSplitter::FailByLimit() const {
    throw std::runtime_error("The " + PictureName() + " is over the limit of " +
                             std::to_string(limit) + " bytes");
}

}  // namespace Brantel::Tool
