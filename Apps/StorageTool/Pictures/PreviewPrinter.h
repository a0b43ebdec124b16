#pragma once

#include "Pictures/JpegDecoder.h"
#include "Playing/IChunkPrinter.h"

#include <libProtocolX/DataChunk.h>

#include <string>

namespace Brantel::Tool {

class Context;

// Shows the JPEG pictures of chunks as characters: on a terminal each in the place of the one
// before, elsewhere one below the other.
class PreviewPrinter : public IChunkPrinter {
  public:
    explicit PreviewPrinter(Context& context) : context(context) {}

    std::string Print(const ProtocolX::DataChunk& chunk) override;

  private:
    std::string Draw(const Picture& picture);

    Context& context;
    JpegDecoder decoder;
    int rowsBefore = 0;
};

}  // namespace Brantel::Tool
