#pragma once

#include "Context.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace Brantel::Tool {

// How far a long work is, on the standard error: a bar with rate and time left on a terminal, a
// line now and then elsewhere, nothing with --quiet. Cheap to update.
class Progress {
  public:
    enum class Unit : std::uint8_t { Percent, Bytes, Chunks };
    using Clock = std::chrono::steady_clock;

    // `total`: in the unit; 0: not known, then no bar and no time left.
    Progress(const Context& context, std::string title, Unit unit, std::int64_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Ends the line.
    ~Progress();

    void Update(std::int64_t done);
    // Shows this as the last state, unless all was over too soon to be noticed.
    void Finish(std::int64_t done);

  private:
    void Show(std::int64_t done, Clock::time_point now);
    std::string Describe(std::int64_t done, Clock::time_point now) const;

    const Context& context;
    const std::string title;
    const Unit unit;
    const std::int64_t total;
    const bool onTerminal;
    const Clock::time_point begin;
    Clock::time_point shown;
    bool lineIsOpen = false;
};

}  // namespace Brantel::Tool
