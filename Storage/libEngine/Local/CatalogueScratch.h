#pragma once

#include "Local/LocalOptions.h"

#include <string>

namespace Brantel::Engine {

// A copy of a store's catalogue files in a temporary folder, for those who must not change the
// store: opening a catalogue writes to it, and restoring a damaged one even more. Removed at the
// end.
class CatalogueScratch {
  public:
    // Copies. Throws EngineError (Io, NoSpace).
    explicit CatalogueScratch(const LocalOptions& store);
    ~CatalogueScratch();
    CatalogueScratch(const CatalogueScratch&) = delete;
    CatalogueScratch& operator=(const CatalogueScratch&) = delete;

    // Those of the store, with the temporary folder in place of the store's; what is reported names
    // the store's files all the same.
    const LocalOptions& GetOptions() const { return options; }

  private:
    void Copy(const std::string& store, const char* name) const;
    void Remove() const noexcept;

    std::string folder;
    LocalOptions options;
};

}  // namespace Brantel::Engine
