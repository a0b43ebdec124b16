#include "Playing/ChunkForms.h"

#include "Context.h"
#include "JsonObject.h"

namespace Brantel::Tool {

using ProtocolX::DataChunk;

std::vector<ChunkForms::Block> ChunkForms::Blocks(const DataChunk& chunk) {
    std::vector<Block> blocks;
    for (const std::string& key : chunk.GetDataKeys()) {
        blocks.push_back({key, chunk.GetData(key)});
    }
    return blocks;
}

bool ChunkForms::IsJpeg(std::string_view bytes) {
    return bytes.substr(0, 2) == "\xFF\xD8";
}

const ChunkForms::Block* ChunkForms::FindPicture(const std::vector<Block>& blocks) {
    const Block* found = nullptr;
    for (const Block& block : blocks) {
        if (IsJpeg(block.bytes) && (found == nullptr || block.key == "image")) {
            found = &block;
        }
    }
    return found;
}

std::string ChunkForms::Record(const DataChunk& chunk, std::string& reason) {
    std::string record(chunk.GetSizeOnFile(), '\0');
    auto* const bytes = reinterpret_cast<unsigned char*>(record.data());
    return chunk.TryWrite(bytes, record.size(), &reason) == 0 ? std::string() : record;
}

std::string ChunkForms::Json(const DataChunk& chunk, const Context& context) {
    JsonObject properties;
    for (const std::string& key : chunk.GetPropertyKeys()) {
        properties.AddBytes(key, chunk.GetProperty(key));
    }
    JsonObject data;
    for (const Block& block : Blocks(chunk)) {
        data.AddBytes(block.key, block.bytes);
    }
    JsonObject object;
    context.AddTime(object, "timePoint", chunk.GetTimePoint());
    object.Add("durationNanoseconds",
               static_cast<std::int64_t>(chunk.GetDuration().ToNanoseconds()));
    object.Add("properties", properties).Add("data", data);
    return object.Print();
}

std::string ChunkForms::Render(const std::string& format, const DataChunk& chunk,
                               const Context& context, std::string& reason) {
    if (format == "record") {
        return Record(chunk, reason);
    }
    if (format == "json") {
        return Json(chunk, context) + "\n";
    }
    const std::vector<Block> blocks = Blocks(chunk);
    std::string bytes;
    if (format == "mjpeg") {
        const Block* const picture = FindPicture(blocks);
        reason = picture == nullptr ? noPicture : "";
        return picture == nullptr ? bytes : std::string(picture->bytes);
    }
    for (const Block& block : blocks) {
        bytes += block.bytes;
    }
    return bytes;
}

}  // namespace Brantel::Tool
