#pragma once

#include <StorageTool/Media/ISplitter.h>

#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {

// What came out of a splitter: the pieces, and the error that ended it.
struct Split {
    std::vector<std::string> pieces;
    std::string error;

    bool operator==(const Split& other) const {
        return pieces == other.pieces && error == other.error;
    }
};

// Feeds a stream in parts of at most `most` bytes, random ones with a seed that is not 0.
inline Split FeedInParts(ISplitter& splitter, const std::string& stream, std::size_t most,
                         unsigned seed = 0) {
    std::minstd_rand random(seed);
    Split split;
    const auto takeAll = [&] {
        for (std::string piece; splitter.Take(piece);) {
            split.pieces.push_back(piece);
        }
    };
    try {
        for (std::size_t place = 0; place < stream.size();) {
            const std::size_t size = seed == 0 ? most : 1 + random() % most;
            splitter.Feed(std::string_view(stream).substr(place, size));
            place += size;
            takeAll();
        }
        splitter.Finish();
        takeAll();
    } catch (const std::runtime_error& error) {
        split.error = error.what();
    }
    return split;
}

inline Split FeedAtOnce(ISplitter& splitter, const std::string& stream) {
    return FeedInParts(splitter, stream, stream.size() + 1);
}

}  // namespace Brantel::Tool
