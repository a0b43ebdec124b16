#pragma once

#include <libProtocolX/DataChunk.h>

#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tool {

class Context;

// What a chunk looks like outside of a storage.
struct ChunkForms {
    struct Block {
        std::string key;
        std::string_view bytes;
    };

    // The data blocks, by their keys; of a key that occurs twice the first one. Valid as long as
    // the chunk is.
    static std::vector<Block> Blocks(const ProtocolX::DataChunk& chunk);

    // The block that is a JPEG picture: the one with the key "image", or the first one.
    static const Block* FindPicture(const std::vector<Block>& blocks);
    static bool IsJpeg(std::string_view bytes);

    // The chunk record. Empty, and why in `reason`, when there is none for this chunk.
    static std::string Record(const ProtocolX::DataChunk& chunk, std::string& reason);

    // One JSON object: timePoint, durationNanoseconds, properties, data.
    static std::string Json(const ProtocolX::DataChunk& chunk, const Context& context);

    // Of the form raw (the data blocks one after the other), mjpeg (the picture), record or json
    // (with the end of its line). Empty, and why in `reason`, when the chunk has no such form.
    static std::string Render(const std::string& format, const ProtocolX::DataChunk& chunk,
                              const Context& context, std::string& reason);

    static constexpr const char* noPicture = "none of its data blocks is a JPEG picture";
};

}  // namespace Brantel::Tool
