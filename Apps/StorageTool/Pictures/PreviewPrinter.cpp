#include "Pictures/PreviewPrinter.h"

#include "Context.h"
#include "Pictures/BlockPicture.h"
#include "Playing/ChunkForms.h"
#include "Terminal.h"

#include <stdexcept>

namespace Brantel::Tool {

std::string PreviewPrinter::Print(const ProtocolX::DataChunk& chunk) {
    const auto blocks = ChunkForms::Blocks(chunk);
    const ChunkForms::Block* const jpeg = ChunkForms::FindPicture(blocks);
    if (jpeg == nullptr) {
        return ChunkForms::noPicture;
    }
    std::string drawn;
    try {
        const Terminal::Size size = Terminal::SizeOf(context.Out().Descriptor());
        drawn = Draw(decoder.Decode(jpeg->bytes, size.columns, 2 * size.rows));
    } catch (const std::runtime_error& error) {
        return "its picture can't be decoded: " + std::string(error.what());
    }
    if (rowsBefore > 0 && context.Out().IsTerminal()) {
        context.Out().Write("\x1b[" + std::to_string(rowsBefore) + "A\r");
    }
    const std::string title = context.TimeOf(chunk.GetTimePoint());
    context.Out().Write(drawn + title + (context.Out().IsTerminal() ? "\x1b[K\n" : "\n"));
    rowsBefore = 1;
    for (const char character : drawn) {
        rowsBefore += character == '\n' ? 1 : 0;
    }
    bytes += static_cast<std::int64_t>(jpeg->bytes.size());
    return {};
}

std::string PreviewPrinter::Draw(const Picture& picture) {
    const Terminal::Size terminal = Terminal::SizeOf(context.Out().Descriptor());
    // One line for the time, and one for the cursor behind it.
    constexpr int rowsBeside = 2;
    const BlockPicture::Size size = BlockPicture::Fit(
        picture.width, picture.height, {terminal.columns, terminal.rows - rowsBeside});
    const bool blocks = context.Style().unicode && context.Style().colorsOutput;
    return blocks ? BlockPicture::Blocks(picture, size) : BlockPicture::Letters(picture, size);
}

}  // namespace Brantel::Tool
