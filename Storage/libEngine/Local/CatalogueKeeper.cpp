#include "Local/CatalogueKeeper.h"

#include "EngineError.h"
#include "Local/CatalogueFile.h"
#include "Local/CatalogueMark.h"
#include "Local/File.h"
#include "Local/Report.h"

#include <fcntl.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace Brantel::Engine {

namespace {

constexpr const char* logEnding = "-wal";

// What `load` returns; nothing, and the report says why, when it meets damage.
template <typename Load>
auto UnlessDamaged(const LocalReport& report, Load load) -> std::optional<decltype(load())> {
    try {
        return load();
    } catch (const EngineError& error) {
        if (error.GetKind() != EngineError::Kind::Damaged) {
            throw;
        }
        report(error.what());
        return std::nullopt;
    }
}

}  // namespace

CatalogueKeeper::CatalogueKeeper(const FolderCalls& folders, const LocalOptions& options)
    : folders(folders),
      options(options),
      path(options.directory + "/catalogue.sqlite"),
      copyPath(options.directory + "/catalogue.copy.sqlite") {}

CatalogueKeeper::~CatalogueKeeper() = default;

std::optional<CatalogueKeeper::Opened> CatalogueKeeper::TryOpen(bool fresh) const {
    return UnlessDamaged(options.report, [&] {
        Opened opened;
        opened.file = std::make_unique<CatalogueFile>(
            path, fresh ? CatalogueFile::Mode::Make : CatalogueFile::Mode::Open,
            options.catalogueReserve, options.catalogueVfs);
        opened.content = opened.file->Load();
        return opened;
    });
}

std::optional<CatalogueContent> CatalogueKeeper::LoadCopy() const {
    if (!folders.GetStatus(copyPath)) {
        return std::nullopt;
    }
    return UnlessDamaged(options.report, [&] {
        return CatalogueFile(copyPath, CatalogueFile::Mode::Read, 0, options.catalogueVfs).Load();
    });
}

void CatalogueKeeper::Mend(Opened& opened) const {
    std::vector<CatalogueContent::DamagedRecord>& damaged = opened.content.damaged;
    if (damaged.empty()) {
        return;
    }
    const std::optional<CatalogueContent> copy = LoadCopy();
    for (auto record = damaged.begin(); record != damaged.end();) {
        const CatalogueContent::StoredRecord* whole = nullptr;
        if (copy) {
            const auto found = std::find_if(
                copy->records.begin(), copy->records.end(),
                [&](const auto& candidate) { return candidate.checksum == record->checksum; });
            whole = found == copy->records.end() ? nullptr : &*found;
        }
        if (whole == nullptr) {
            options.report(path + ": the record " + record->key + " is damaged");
            ++record;
            continue;
        }
        opened.file->Begin();
        opened.file->RemoveRecord(record->key);
        opened.file->PutRecord(whole->record.key, whole->record.value, whole->record.version);
        opened.file->Commit(opened.content.lastVersion);
        opened.content.records.push_back(*whole);
        options.report(path + ": the damaged record " + whole->record.key +
                       " was restored from the copy");
        record = damaged.erase(record);
    }
}

CatalogueKeeper::Opened CatalogueKeeper::Open(bool fresh) {
    std::optional<Opened> opened;
    if (fresh || folders.GetStatus(path)) {
        opened = TryOpen(fresh);
    } else {
        options.report(path + ": is missing");
    }
    mark = std::make_unique<CatalogueMark>(folders, options.directory + "/catalogue.mark");
    // Where nothing was answered yet, it is what a loss of power left of its making.
    if (mark->IsDamaged() && !(opened && opened->content.lastVersion == 0)) {
        options.report(options.directory + "/catalogue.mark: is damaged");
    }
    if (opened && opened->content.lastVersion < mark->GetVersion()) {
        options.report(path + ": lacks changes that were answered, its log is damaged");
    }
    if (!opened || opened->content.lastVersion < mark->GetVersion()) {
        opened = Replace(std::move(opened));
    }
    folders.FlushFolder(options.directory);
    Mend(*opened);
    SettleVersion(*opened);
    KeepRoom();
    return *std::move(opened);
}

CatalogueKeeper::Opened CatalogueKeeper::Replace(std::optional<Opened> opened) const {
    const std::optional<CatalogueContent> copy = LoadCopy();
    const std::string saved = path + ".saved";
    const bool keep = opened && (!copy || copy->lastVersion <= opened->content.lastVersion);
    if (keep) {
        folders.RemoveFile(saved);
        opened->file->CopyTo(saved);
        File(folders.GetCalls(), saved, O_RDWR).Flush();
    }
    if (opened) {
        opened->file->KeepLog();
        opened.reset();
    }
    PutAside();
    if (keep) {
        folders.Rename(saved, path);
        folders.FlushFolder(options.directory);
    } else {
        RestoreFromCopy();
    }
    std::optional<Opened> replaced = TryOpen(true);
    if (!replaced) {
        throw EngineError(EngineError::Kind::Damaged, path + ": can't be made again");
    }
    replaced->restored = true;
    return *std::move(replaced);
}

// What was answered and is lost is told; its versions are never given again.
void CatalogueKeeper::SettleVersion(Opened& opened) {
    std::uint64_t& found = opened.content.lastVersion;
    const std::uint64_t answered = mark->GetVersion();
    if (found < answered) {
        options.report(path + ": the changes " + std::to_string(found + 1) + " to " +
                       std::to_string(answered) + " are lost");
        opened.file->Begin();
        opened.file->Commit(answered);
        found = answered;
    }
    if (found != answered || mark->IsDamaged()) {
        mark->Write(found);
    }
}

void CatalogueKeeper::NoteAnswered(std::uint64_t version) noexcept {
    try {
        mark->Write(version);
        markFailed = false;
    } catch (const std::exception& error) {
        if (!markFailed) {
            Tell(options.report, error.what());
        }
        markFailed = true;
    }
}

void CatalogueKeeper::RestoreFromCopy() const {
    const std::optional<CatalogueContent> content = LoadCopy();
    if (!content) {
        options.report(path + ": begins empty, all records are lost");
        return;
    }
    options.report(path + ": restored from " + copyPath);
    CatalogueFile copy(copyPath, CatalogueFile::Mode::Read, 0, options.catalogueVfs);
    CopyInto(copy, path);
}

void CatalogueKeeper::PutAside() const {
    for (int number = 1;; ++number) {
        const std::string aside =
            options.directory + "/catalogue.damaged-" + std::to_string(number) + ".sqlite";
        if (folders.GetStatus(aside) || folders.GetStatus(aside + logEnding)) {
            continue;
        }
        for (const char* ending : {"", logEnding}) {
            if (folders.GetStatus(path + ending)) {
                folders.Rename(path + ending, aside + ending);
            }
        }
        break;
    }
    folders.FlushFolder(options.directory);
}

void CatalogueKeeper::CopyInto(CatalogueFile& file, const std::string& target) const {
    const std::string fresh = target + ".new";
    folders.RemoveFile(fresh);
    try {
        file.CopyTo(fresh);
        File(folders.GetCalls(), fresh, O_RDWR).Flush();
        folders.Rename(fresh, target);
    } catch (const EngineError&) {
        folders.RemoveFile(fresh);  // on a full medium half a copy takes what others need
        throw;
    }
    folders.FlushFolder(options.directory);
}

void CatalogueKeeper::Copy(CatalogueFile& file) const {
    CopyInto(file, copyPath);
}

void CatalogueKeeper::Close(std::unique_ptr<CatalogueFile> file, bool copy) const {
    try {
        if (copy) {
            Copy(*file);
        }
    } catch (const EngineError& error) {
        options.report(error.what());  // the one before is kept
    }
    file->Checkpoint();
    file.reset();
    KeepRoom();
}

void CatalogueKeeper::KeepRoom() const {
    if (options.catalogueReserve > 0) {
        File(folders.GetCalls(), path + logEnding, O_RDWR | O_CREAT)
            .AllocateBehindEnd(options.catalogueReserve);
    }
}

}  // namespace Brantel::Engine
