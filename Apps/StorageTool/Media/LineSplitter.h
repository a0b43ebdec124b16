#pragma once

#include <StorageTool/Media/ISplitter.h>

#include <cstddef>
#include <string>

namespace Brantel::Tool {

// Lines, each with the line feed that ends it; the last one may have none.
class LineSplitter : public ISplitter {
  public:
    explicit LineSplitter(std::size_t limit = defaultLimit) : ISplitter(limit) {}

    bool Take(std::string& piece) override;

  private:
    std::size_t searched = 0;  // bytes of the line in which there is no line feed
};

}  // namespace Brantel::Tool
