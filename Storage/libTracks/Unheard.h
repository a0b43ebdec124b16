#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>

namespace Brantel::Tracks {

// The progress of what runs to its end while nobody listens.
class Unheard : public Engine::IProgress {
  public:
    bool Report(std::uint64_t /*done*/, std::uint64_t /*total*/) override { return true; }
};

}  // namespace Brantel::Tracks
