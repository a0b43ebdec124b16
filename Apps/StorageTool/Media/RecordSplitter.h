#pragma once

#include <StorageTool/Media/ISplitter.h>

#include <cstddef>
#include <string>

namespace Brantel::Tool {

// Chunk records as ProtocolX::DataChunk writes them, one after the other: each begins with its
// size. What else a record holds is for DataChunk::TryReadFrom to judge.
class RecordSplitter : public ISplitter {
  public:
    explicit RecordSplitter(std::size_t limit = defaultLimit) : ISplitter(limit) {}

    bool Take(std::string& piece) override;
};

}  // namespace Brantel::Tool
