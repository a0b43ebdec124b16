#pragma once

#include "Local/FolderCalls.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Brantel::Engine {

class File;

// Remembers, beside the catalogue, up to which version its changes were answered. The database
// can't tell that itself: it takes a log with a flipped bit for one that ends there, and so forgets
// every later commit in silence. Not thread-safe.
//
//   catalogue.mark, 4096 bytes, little-endian; odd versions are written at 0, even ones at 2048, so
//   that a torn write leaves the one before
//     0   8  XXH3 of [8, 24)
//     8   8  "BRCATMRK"
//    16   8  version
class CatalogueMark {
  public:
    // Opens the file, or makes one that says 0. Throws EngineError (Io, NoSpace).
    CatalogueMark(const FolderCalls& folders, const std::string& path);
    ~CatalogueMark();
    CatalogueMark(const CatalogueMark&) = delete;
    CatalogueMark& operator=(const CatalogueMark&) = delete;

    // The highest version that was written.
    std::uint64_t GetVersion() const { return version; }
    // It was there, and neither place could be read.
    bool IsDamaged() const { return damaged; }

    // Lasting when it returns. Throws EngineError (Io, NoSpace).
    void Write(std::uint64_t newVersion);

  private:
    std::unique_ptr<File> file;
    std::string page;
    std::uint64_t version = 0;
    bool damaged = false;
};

}  // namespace Brantel::Engine
