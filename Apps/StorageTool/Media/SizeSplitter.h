#pragma once

#include <StorageTool/Media/ISplitter.h>

#include <cstddef>
#include <string>

namespace Brantel::Tool {

// Pieces of one size; the last one may be shorter.
class SizeSplitter : public ISplitter {
  public:
    // `size`: at least 1, bytes.
    explicit SizeSplitter(std::size_t size) : ISplitter(size) {}

    bool Take(std::string& piece) override;
};

}  // namespace Brantel::Tool
