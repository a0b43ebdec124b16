#pragma once

#include <libProtocolX/DataChunk.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Brantel::Tool {

class Context;

// Writes chunks in one form.
class IChunkPrinter {
  public:
    virtual ~IChunkPrinter() = default;
    IChunkPrinter(const IChunkPrinter&) = delete;
    IChunkPrinter& operator=(const IChunkPrinter&) = delete;

    // Empty when the chunk was written; otherwise why it has no such form, and nothing was. Throws
    // when writing fails.
    virtual std::string Print(const ProtocolX::DataChunk& chunk) = 0;

    // Bytes of data that were written.
    std::int64_t Bytes() const { return bytes; }

    // For the standard output: raw, mjpeg, record or json.
    static std::unique_ptr<IChunkPrinter> Make(const std::string& format, Context& context);
    // One file in this folder, which is made when it is missing, for each data block, or for each
    // chunk in the forms record and json.
    static std::unique_ptr<IChunkPrinter> MakeForFolder(const std::string& format,
                                                        const std::string& folder, bool overwrite,
                                                        Context& context);

  protected:
    IChunkPrinter() = default;

    std::int64_t bytes = 0;
};

}  // namespace Brantel::Tool
