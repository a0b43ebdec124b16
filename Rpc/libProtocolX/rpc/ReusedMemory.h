#pragma once

#include "rpc/PartMemory.h"

#include <array>
#include <cstddef>

namespace BrantelStorageApi {

// Keeps account of the memory that gathers in one envelope while it is used again and again.
template <class Envelope>
class ReusedMemory {
  public:
    // What an envelope may keep, in bytes; and what the parts of fixed size take of it together.
    static constexpr std::size_t limit = std::size_t{64} * 1024;
    static constexpr std::size_t fixedParts = std::size_t{6} * 1024;

    // Clears the envelope, whose part of this operation had `memory`, and replaces it when it would
    // keep more than the limit, or what is not known.
    void Clear(Envelope& envelope, Operation operation, const PartMemory& memory) {
        const auto index = static_cast<std::size_t>(operation);
        std::size_t& before = lists[index < lists.size() ? index : 0];
        total += memory.lists + memory.unknownFields;
        total -= before;
        before = memory.lists;
        envelope.Clear();
        if (memory.foreign || total + memory.text > limit - fixedParts) {
            Envelope().Swap(&envelope);
            lists = {};
            total = 0;
        }
    }

  private:
    std::array<std::size_t, Operation_ARRAYSIZE> lists{};  // by operation, of its part
    std::size_t total = 0;                                 // of all of them, and unknown fields
};

}  // namespace BrantelStorageApi
