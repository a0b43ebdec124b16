#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

// A chunk read as it is stored, to be appended somewhere else.
class StoredChunk : public Engine::IChunkSink {
  public:
    void Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
               std::span<char*> destinations) override;

    std::span<const std::string_view> GetParts() const { return parts; }

  private:
    std::string bytes;
    std::vector<std::string_view> parts;  // into bytes
};

}  // namespace Brantel::Tracks
