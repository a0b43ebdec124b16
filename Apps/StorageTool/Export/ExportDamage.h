#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Brantel::Tool {

// An export file is not what was written. The text holds the path and the place.
class ExportDamage : public std::runtime_error {
  public:
    // `isCut`: the file ends too early, and everything in it before `place` is whole.
    ExportDamage(const std::string& path, std::uint64_t place, const std::string& what, bool isCut)
        : std::runtime_error(path + ": at byte " + std::to_string(place) + ": " + what),
          place(place),
          isCut(isCut) {}

    std::uint64_t Place() const { return place; }
    bool IsCut() const { return isCut; }

  private:
    std::uint64_t place;
    bool isCut;
};

// The beginning of a file is not that of an export file that this program can read.
class ExportHeaderError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Brantel::Tool
