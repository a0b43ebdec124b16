#pragma once

#include "Local/CatalogueContent.h"
#include "Local/FolderCalls.h"
#include "Local/LocalOptions.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Brantel::Engine {

class CatalogueFile;

// The catalogue's files in the store: it, its log, and a copy of it from which it is restored.
// The caller takes turns.
//
//   catalogue.sqlite, catalogue.sqlite-wal    the catalogue
//   catalogue.copy.sqlite                     a whole copy of an earlier state
//   catalogue.damaged-N.sqlite, ...-wal       put aside, never deleted
class CatalogueKeeper {
  public:
    CatalogueKeeper(const FolderCalls& folders, const LocalOptions& options);

    struct Opened {
        std::unique_ptr<CatalogueFile> file;
        CatalogueContent content;
        bool restored = false;  // what changed since the copy is lost
    };
    // Opens it, or makes it when `fresh`. A damaged or lost one is put aside and replaced by the
    // copy, or by an empty one; that is reported. Throws EngineError (Io, NoSpace, Refused).
    Opened Open(bool fresh) const;

    // Replaces the copy by what the catalogue holds now.
    void Copy(CatalogueFile& file) const;
    // Flushes and closes it, and keeps the room that it may need on a full medium.
    void Close(std::unique_ptr<CatalogueFile> file) const;

  private:
    std::optional<Opened> TryOpen(bool fresh) const;
    // Takes over from the copy what is damaged in one record alone.
    void Mend(Opened& opened) const;
    std::optional<CatalogueContent> LoadCopy() const;
    void RestoreFromCopy() const;
    void CopyInto(CatalogueFile& file, const std::string& target) const;
    void PutAside() const;
    void KeepRoom() const;

    const FolderCalls& folders;
    const LocalOptions& options;
    const std::string path;
    const std::string copyPath;
};

}  // namespace Brantel::Engine
