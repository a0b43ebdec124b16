#pragma once

#include <CommonMessages.pb.h>
#include <libEngine/IEngine.h>

#include <cstdint>
#include <span>
#include <string_view>

namespace Brantel::Tracks {

// Fills a chunk message while its stored form is read (EncodedChunk draws it): all properties, and
// the data blocks whose key is in `keys`, or all when that is empty. The data goes from the engine
// straight into the message. Both arguments are borrowed until the read has ended.
class ChunkDecoder : public Engine::IChunkSink {
  public:
    ChunkDecoder(const Protocol::KeyList& keys, Protocol::Chunk& chunk)
        : keys(keys), chunk(chunk) {}

    // Throws std::runtime_error when the first part can't be decoded.
    void Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
               std::span<char*> destinations) override;

    // Bytes of the values that were taken over.
    std::uint64_t GetPayloadBytes() const { return payloadBytes; }

  private:
    bool IsWanted(std::string_view key) const;

    const Protocol::KeyList& keys;
    Protocol::Chunk& chunk;
    std::uint64_t payloadBytes = 0;
};

}  // namespace Brantel::Tracks
