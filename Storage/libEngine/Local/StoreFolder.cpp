#include "Local/StoreFolder.h"

#include "EngineError.h"
#include "Local/File.h"
#include "Local/SegmentFormat.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace Brantel::Engine {

namespace {

constexpr std::string_view formatName = "brantel local store, version ";
constexpr std::size_t maxFormatSize = 256;

std::string FormatLine(std::uint32_t version) {
    std::string line = std::string(formatName) + std::to_string(version) + ", ";
    std::array<char, 20> checksum{};
    std::snprintf(
        checksum.data(), checksum.size(), "%016llx",
        static_cast<unsigned long long>(SegmentFormat::Checksum(line.data(), line.size())));
    return line + checksum.data() + "\n";
}

// The version of a line that is whole; 0: it is not.
std::uint32_t VersionOf(std::string_view line) {
    if (!line.starts_with(formatName)) {
        return 0;
    }
    std::uint32_t version = 0;
    std::from_chars(line.data() + formatName.size(), line.data() + line.size(), version);
    return line == FormatLine(version) ? version : 0;
}

}  // namespace

StoreFolder::StoreFolder(const FolderCalls& folders, const LocalOptions& options)
    : folders(folders),
      options(options),
      folder(options.directory),
      formatPath(folder + "/FORMAT") {
    CheckFolder();
    TakeLock();
    CheckFormat();
    if (fresh) {
        CheckNames();
    }
    if (!options.readOnly) {
        folders.MakeFolder(GetTracksFolder());
    }
    CheckOwner(GetTracksFolder(), true);
    CheckOwner(folder + "/catalogue.sqlite", false);
}

StoreFolder::~StoreFolder() = default;

void StoreFolder::Refuse(const std::string& path, const std::string& text) const {
    throw EngineError(EngineError::Kind::Refused, path + ": " + text);
}

void StoreFolder::CheckOwner(const std::string& path, bool folderExpected) const {
    const std::optional<struct stat> status = folders.GetStatus(path);
    if (!status) {
        return;
    }
    if (S_ISLNK(status->st_mode)) {
        Refuse(path, "is a symbolic link; name the store itself");
    }
    if (folderExpected ? !S_ISDIR(status->st_mode) : !S_ISREG(status->st_mode)) {
        Refuse(path, folderExpected ? "is not a folder" : "is not a file");
    }
    if (status->st_uid != geteuid()) {
        Refuse(path, "belongs to user " + std::to_string(status->st_uid) +
                         ", this server runs as user " + std::to_string(geteuid()));
    }
}

void StoreFolder::CheckFolder() const {
    if (folder.empty()) {
        Refuse("''", "is no name of a folder for a store");
    }
    CheckOwner(folder, true);
    if (options.readOnly) {
        if (!folders.GetStatus(folder)) {
            Refuse(folder, "does not exist");
        }
        return;
    }
    folders.MakeFolder(folder);
    CheckOwner(folder, true);
}

std::unique_ptr<File> StoreFolder::OpenLock(const std::string& path) const {
    if (!options.readOnly) {
        return std::make_unique<File>(folders.GetCalls(), path, O_RDWR | O_CREAT);
    }
    return folders.GetStatus(path) ? std::make_unique<File>(folders.GetCalls(), path, O_RDONLY)
                                   : nullptr;
}

void StoreFolder::TakeLock() {
    const std::string path = folder + "/LOCK";
    CheckOwner(path, false);
    lock = OpenLock(path);
    if (!lock) {
        return;  // no server has ever opened this folder
    }
    std::array<char, 24> holder{};
    if (!lock->TryLock()) {
        lock->ReadSome(holder.data(), holder.size() - 1, 0);
        const std::string_view text(holder.data());
        Refuse(folder, "is in use by another server, process " +
                           std::string(text.substr(0, text.find_first_of(" \n"))));
    }
    if (options.readOnly) {
        return;
    }
    // Always the same size, so that it can be written on a full medium.
    std::snprintf(holder.data(), holder.size(), "%-22lld\n", static_cast<long long>(getpid()));
    lock->Write(holder.data(), holder.size() - 1, 0);
}

void StoreFolder::CheckFormat() {
    CheckOwner(formatPath, false);
    if (!folders.GetStatus(formatPath)) {
        fresh = true;
        formatMissing = true;
        if (options.readOnly) {
            CheckUnknownFormat();
        }
        return;
    }
    std::array<char, maxFormatSize> bytes{};
    File(folders.GetCalls(), formatPath, O_RDONLY).ReadSome(bytes.data(), bytes.size() - 1, 0);
    const std::uint32_t version = VersionOf(bytes.data());
    if (version > SegmentFormat::version) {
        Refuse(folder, "has format version " + std::to_string(version) +
                           ", this program knows up to " + std::to_string(SegmentFormat::version));
    }
    if (version == 0) {
        // The catalogue has the version too: a newer store is refused there.
        options.report(formatPath + ": is damaged");
        formatMissing = true;
    }
}

void StoreFolder::CheckUnknownFormat() {
    const bool holdsTracks = !folders.List(GetTracksFolder()).empty();
    if (!holdsTracks && !folders.GetStatus(folder + "/catalogue.sqlite")) {
        Refuse(folder, "is no store");
    }
    if (holdsTracks) {
        fresh = false;
        options.report(formatPath + ": is missing");
    }
}

void StoreFolder::CheckNames() const {
    for (const std::string& name : folders.List(folder)) {
        const bool ours = name == "LOCK" || name == "FORMAT.new" || name == "tracks" ||
                          name == "lost+found" || name.starts_with("catalogue.");
        if (!ours) {
            Refuse(folder, "is neither empty nor a store: it holds " + name);
        }
    }
}

void StoreFolder::SetComplete() {
    if (formatMissing && !options.readOnly) {
        folders.WriteFile(formatPath, FormatLine(SegmentFormat::version));
        formatMissing = false;
    }
}

}  // namespace Brantel::Engine
