#include "Playing/IChunkPrinter.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Export/DataFile.h"
#include "Playing/ChunkForms.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;

namespace {

// The data blocks one after the other, as they are.
class RawPrinter : public IChunkPrinter {
  public:
    explicit RawPrinter(Context& context) : context(context) {}

    std::string Print(const DataChunk& chunk) override {
        for (const ChunkForms::Block& block : ChunkForms::Blocks(chunk)) {
            context.RefuseOnTerminal(block.bytes);
            context.Out().Write(block.bytes);
            bytes += static_cast<std::int64_t>(block.bytes.size());
        }
        return {};
    }

  private:
    Context& context;
};

class MjpegPrinter : public IChunkPrinter {
  public:
    explicit MjpegPrinter(Context& context) : context(context) {}

    std::string Print(const DataChunk& chunk) override {
        const auto blocks = ChunkForms::Blocks(chunk);
        const ChunkForms::Block* const picture = ChunkForms::FindPicture(blocks);
        if (picture == nullptr) {
            return ChunkForms::noPicture;
        }
        context.RefuseOnTerminal(picture->bytes);
        context.Out().Write(picture->bytes);
        bytes += static_cast<std::int64_t>(picture->bytes.size());
        return {};
    }

  private:
    Context& context;
};

class RecordPrinter : public IChunkPrinter {
  public:
    explicit RecordPrinter(Context& context) : context(context) {}

    std::string Print(const DataChunk& chunk) override {
        std::string reason;
        const std::string record = ChunkForms::Record(chunk, reason);
        context.RefuseOnTerminal(record);
        context.Out().Write(record);
        bytes += static_cast<std::int64_t>(record.size());
        return reason;
    }

  private:
    Context& context;
};

class JsonPrinter : public IChunkPrinter {
  public:
    explicit JsonPrinter(Context& context) : context(context) {}

    std::string Print(const DataChunk& chunk) override {
        const std::string line = ChunkForms::Json(chunk, context);
        context.Out().Line(line);
        bytes += static_cast<std::int64_t>(line.size());
        return {};
    }

  private:
    Context& context;
};

// Files named by their number and time point, so that their names are in the order of the play.
class FolderPrinter : public IChunkPrinter {
  public:
    FolderPrinter(std::string format, std::string folder, bool overwrite, Context& context)
        : format(std::move(format)),
          folder(std::move(folder)),
          overwrite(overwrite),
          context(context) {
        std::error_code error;
        std::filesystem::create_directories(this->folder, error);
        if (error) {
            throw std::system_error(error, this->folder);
        }
    }

    std::string Print(const DataChunk& chunk) override {
        const std::string stem = Stem(chunk);
        std::string reason;
        if (format == "record") {
            const std::string record = ChunkForms::Record(chunk, reason);
            return reason.empty() ? Write(stem + ".record", record) : reason;
        }
        if (format == "json") {
            return Write(stem + ".json", ChunkForms::Json(chunk, context) + "\n");
        }
        const auto blocks = ChunkForms::Blocks(chunk);
        if (format == "mjpeg") {
            const ChunkForms::Block* const picture = ChunkForms::FindPicture(blocks);
            return picture == nullptr ? ChunkForms::noPicture
                                      : Write(stem + ".jpg", picture->bytes);
        }
        for (const ChunkForms::Block& block : blocks) {
            std::string name = stem;
            if (blocks.size() > 1) {
                name.append("-").append(SafeName(block.key));
            }
            name += ChunkForms::IsJpeg(block.bytes) ? ".jpg" : ".bin";
            Write(name, block.bytes);
        }
        return {};
    }

  private:
    std::string Stem(const DataChunk& chunk) {
        std::array<char, 48> text{};
        std::snprintf(text.data(), text.size(), "%06llu-%019lld",
                      static_cast<unsigned long long>(++number),
                      static_cast<long long>(chunk.GetTimePoint().ToNanoseconds()));
        return text.data();
    }

    // A key may hold anything, a file's name may not.
    static std::string SafeName(const std::string& key) {
        constexpr std::size_t longest = 100;
        std::string name = key.substr(0, longest);
        for (char& character : name) {
            const bool isSafe = (character >= '0' && character <= '9') ||
                                (character >= 'a' && character <= 'z') ||
                                (character >= 'A' && character <= 'Z') || character == '_';
            character = isSafe ? character : '_';
        }
        return name;
    }

    std::string Write(const std::string& name, std::string_view content) {
        const std::string path = folder + "/" + name;
        if (overwrite) {
            std::filesystem::remove(path);
        }
        DataFile::Create(path).Write(0, content);
        bytes += static_cast<std::int64_t>(content.size());
        return {};
    }

    const std::string format;
    const std::string folder;
    const bool overwrite;
    Context& context;
    unsigned long long number = 0;
};

}  // namespace

std::unique_ptr<IChunkPrinter> IChunkPrinter::Make(const std::string& format, Context& context) {
    if (format == "json") {
        return std::make_unique<JsonPrinter>(context);
    }
    if (format == "record") {
        return std::make_unique<RecordPrinter>(context);
    }
    if (format == "mjpeg") {
        return std::make_unique<MjpegPrinter>(context);
    }
    return std::make_unique<RawPrinter>(context);
}

std::unique_ptr<IChunkPrinter> IChunkPrinter::MakeForFolder(const std::string& format,
                                                            const std::string& folder,
                                                            bool overwrite, Context& context) {
    return std::make_unique<FolderPrinter>(format, folder, overwrite, context);
}

}  // namespace Brantel::Tool
