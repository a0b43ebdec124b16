#pragma once

#include <libEngine/IEngine.h>
#include <libTracks/StoreFindings.h>

#include <cstdint>
#include <string>

namespace Brantel::Server {

// What is done with a store that no server uses. A value.
struct StoreJob {
    enum class Kind : std::uint8_t { Check, Recover };

    // Exit codes; a failure is 1, as everywhere.
    static constexpr int whole = 0;
    static constexpr int damaged = 3;

    Kind kind = Kind::Check;
    std::string folder;
    std::string target;  // of Recover

    // Throws std::runtime_error when the target is neither missing nor an empty folder, or lies
    // within the store.
    void CheckTarget() const;

    // Each prints what it did and returns the exit code. The engines and the findings are borrowed;
    // `source` shows the store without letting it be changed. Throw std::runtime_error.
    int Check(Engine::IEngine& source, Tracks::StoreFindings& findings) const;
    int Recover(Engine::IEngine& source, Engine::IEngine& newStore,
                Tracks::StoreFindings& findings) const;
};

}  // namespace Brantel::Server
