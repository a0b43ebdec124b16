#pragma once

#include "Local/FolderCalls.h"
#include "Local/LocalOptions.h"

#include <memory>
#include <string>

namespace Brantel::Engine {

class File;

// The folder of a store: whose it is, what format it has, and that one server alone uses it.
//
//   FORMAT          one line: "brantel local store, version 1, XXXXXXXXXXXXXXXX", the last being
//                   the XXH3 of what stands in front of it, in 16 hexadecimal digits
//   LOCK            locked as long as the server runs; holds its process number
//   catalogue.*     see CatalogueKeeper
//   tracks/<id>/    see SlotFolder
class StoreFolder {
  public:
    // Opens the folder, or makes a new store of a missing or empty one, which is Refused for one
    // that is only to be read. Throws EngineError: Refused for a folder that is in use, newer,
    // somebody else's, a symbolic link, or something else; Io.
    StoreFolder(const FolderCalls& folders, const LocalOptions& options);
    ~StoreFolder();
    StoreFolder(const StoreFolder&) = delete;
    StoreFolder& operator=(const StoreFolder&) = delete;

    // It was made here, or an earlier making of it had been cut off.
    bool IsFresh() const { return fresh; }
    // The catalogue is there: one that is missing later was lost.
    void SetComplete();

    std::string GetTracksFolder() const { return folder + "/tracks"; }

  private:
    [[noreturn]] void Refuse(const std::string& path, const std::string& text) const;
    void CheckFolder() const;
    void CheckOwner(const std::string& path, bool folderExpected) const;
    void CheckNames() const;
    std::unique_ptr<File> OpenLock(const std::string& path) const;
    void TakeLock();
    void CheckFormat();
    void CheckUnknownFormat();

    const FolderCalls& folders;
    const LocalOptions& options;
    const std::string folder;
    const std::string formatPath;
    std::unique_ptr<File> lock;
    bool fresh = false;
    bool formatMissing = false;
};

}  // namespace Brantel::Engine
