// The splitter of JPEG pictures, on any stream and with any limit: what is handed out is the stream
// from its beginning, piece after piece; in other parts it is the same, and so is the error.
#include <StorageTool/Media/MjpegSplitter.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Brantel::Tool::MjpegSplitter;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "Does not hold: " << what << std::endl;
        std::abort();
    }
}

struct Outcome {
    std::vector<std::string> pieces;
    std::string error;
};

Outcome Split(std::string_view stream, std::size_t limit, std::size_t part) {
    MjpegSplitter splitter(limit);
    Outcome outcome;
    try {
        std::string piece;
        for (std::size_t place = 0; place < stream.size(); place += part) {
            splitter.Feed(stream.substr(place, part));
            while (splitter.Take(piece)) {
                Require(!piece.empty() && piece.size() <= limit, "a piece keeps to the limit");
                outcome.pieces.push_back(piece);
            }
        }
        splitter.Finish();
        while (splitter.Take(piece)) {
            outcome.pieces.push_back(piece);
        }
    } catch (const std::runtime_error& error) {
        outcome.error = error.what();
    }
    return outcome;
}

}  // namespace

// The first byte says the limit, the second one the size of the parts.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t head = 2;
    constexpr std::size_t leastLimit = 4;
    if (size < head) {
        return 0;
    }
    const std::string_view stream(reinterpret_cast<const char*>(data) + head, size - head);
    const std::size_t limit = leastLimit + data[0] * std::size_t{8};
    const std::size_t part = 1 + data[1];
    const Outcome whole = Split(stream, limit, stream.size() + 1);
    const Outcome inParts = Split(stream, limit, part);
    Require(whole.pieces == inParts.pieces, "parts make no difference to the pieces");
    Require(whole.error == inParts.error, "parts make no difference to the error");
    std::string joined;
    for (const std::string& piece : whole.pieces) {
        joined += piece;
    }
    Require(stream.substr(0, joined.size()) == joined, "the pieces are the stream");
    Require(!whole.error.empty() || joined.size() == stream.size(), "nothing is left in silence");
    return 0;
}
