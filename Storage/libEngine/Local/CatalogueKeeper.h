#pragma once

#include "Local/CatalogueContent.h"
#include "Local/FolderCalls.h"
#include "Local/LocalOptions.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Brantel::Engine {

class CatalogueFile;
class CatalogueMark;

// The catalogue's files in the store: it, its log, and a copy of it from which it is restored.
// The caller takes turns.
//
//   catalogue.sqlite, catalogue.sqlite-wal    the catalogue
//   catalogue.copy.sqlite                     a whole copy of an earlier state
//   catalogue.mark                            up to which change it was answered
//   catalogue.damaged-N.sqlite, ...-wal       put aside, never deleted
class CatalogueKeeper {
  public:
    CatalogueKeeper(const FolderCalls& folders, const LocalOptions& options);
    ~CatalogueKeeper();
    CatalogueKeeper(const CatalogueKeeper&) = delete;
    CatalogueKeeper& operator=(const CatalogueKeeper&) = delete;

    struct Opened {
        std::unique_ptr<CatalogueFile> file;
        CatalogueContent content;
        bool restored = false;  // what changed since the copy is lost
    };
    // Opens it, or makes it when `fresh`. A damaged or lost one is put aside and replaced by the
    // copy, or by an empty one; one that lacks changes that were answered, by what it still has or
    // by the copy if that has more. That is reported, with what is lost. Throws EngineError (Io,
    // NoSpace, Refused).
    Opened Open(bool fresh);

    // Every change up to this version is in the file and about to be answered. What fails is
    // reported: the change itself is safe.
    void NoteAnswered(std::uint64_t version) noexcept;

    // Reports a damaged copy.
    void CheckCopy() const { LoadCopy(); }

    // Replaces the copy by what the catalogue holds now.
    void Copy(CatalogueFile& file) const;
    // Flushes and closes it, after a `copy` if it is due, and keeps the room that it may need on a
    // full medium.
    void Close(std::unique_ptr<CatalogueFile> file, bool copy) const;

  private:
    std::optional<Opened> TryOpen(bool fresh) const;
    Opened Replace(std::optional<Opened> opened) const;
    void SettleVersion(Opened& opened);
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
    std::unique_ptr<CatalogueMark> mark;
    bool markFailed = false;  // reported already
};

}  // namespace Brantel::Engine
