#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

struct XXH3_state_s;

namespace Brantel::Tool {

// The checksum of bytes that come one after the other. A value.
class RunningChecksum {
  public:
    RunningChecksum();
    RunningChecksum(const RunningChecksum& other);
    RunningChecksum& operator=(const RunningChecksum& other);
    RunningChecksum(RunningChecksum&&) noexcept = default;
    RunningChecksum& operator=(RunningChecksum&&) noexcept = default;
    ~RunningChecksum() = default;

    void Add(std::string_view bytes);
    std::uint64_t Value() const;

  private:
    using State = XXH3_state_s;
    struct Freer {
        void operator()(State* state) const;
    };

    std::unique_ptr<State, Freer> state;
};

}  // namespace Brantel::Tool
