#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

namespace Brantel::Tests {

// How often a proof by repetition repeats: a test as often as fits between others, ./run prove as
// often as it promises.
inline std::uint64_t ProofSize(std::uint64_t usual, std::uint64_t proof) {
    return std::getenv("BRANTEL_PROVE") != nullptr ? proof : usual;
}

// The first seed of a proof; set BRANTEL_SEED to what a failure named to see it again.
inline std::uint64_t ProofSeed() {
    const char* text = std::getenv("BRANTEL_SEED");
    return text == nullptr ? 1 : std::stoull(text);
}

}  // namespace Brantel::Tests
