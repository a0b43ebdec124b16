#include "Support/CrashImage.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace Brantel::Engine {

using Kind = FileOperation::Kind;

CrashImage::CrashImage(const FileRecording& recording, std::uint64_t cut, FlushHonesty honesty,
                       std::mt19937_64& random)
    : cut(cut), random(random) {
    constexpr std::array<std::uint64_t, 6> keptChoices{0, 10, 50, 90, 100, 100};
    constexpr std::array<std::uint64_t, 4> tornChoices{0, 0, 30, 100};
    kept = keptChoices.at(random() % keptChoices.size());
    torn = tornChoices.at(random() % tornChoices.size());
    sector = Chance(50) ? 512 : 4096;
    FindFlushes(recording, honesty);
    for (const FileOperation& operation : recording.GetOperations()) {
        if (operation.begin >= cut) {
            break;
        }
        if (operation.kind != Kind::Failed) {
            Apply(operation);
        }
    }
}

void CrashImage::FindFlushes(const FileRecording& recording, FlushHonesty honesty) {
    for (const FileOperation& operation : recording.GetOperations()) {
        if (operation.end > cut) {
            continue;
        }
        // The operations that are adopted begin in front of everything: what was there stays.
        if (operation.kind == Kind::FlushFile &&
            (honesty.files || operation.end <= recording.GetAdoptedEnd())) {
            std::uint64_t& place = flushedFiles[operation.file];
            place = std::max(place, operation.begin);
        } else if (operation.kind == Kind::FlushFolder &&
                   (honesty.folders || operation.end <= recording.GetAdoptedEnd())) {
            std::uint64_t& place = flushedFolders[operation.path];
            place = std::max(place, operation.begin);
        }
    }
}

bool CrashImage::IsFlushed(const FileOperation& operation) const {
    if (operation.ChangesFile()) {
        const auto flushed = flushedFiles.find(operation.file);
        return flushed != flushedFiles.end() && operation.end <= flushed->second;
    }
    const auto flushed = flushedFolders.find(operation.Folder());
    return flushed != flushedFolders.end() && operation.end <= flushed->second;
}

void CrashImage::Apply(const FileOperation& operation) {
    const bool flushed = IsFlushed(operation);
    if (!flushed && !Chance(kept)) {
        return;
    }
    if (operation.ChangesFile()) {
        ChangeFile(operation, !flushed && Chance(torn));
    } else {
        ChangeNames(operation);
    }
}

void CrashImage::ChangeFile(const FileOperation& operation, bool isTorn) {
    std::string& content = contents[operation.file];
    if (operation.kind == Kind::Resize) {
        content.resize(operation.offset);
        return;
    }
    const std::uint64_t end = operation.offset + operation.bytes.size();
    if (content.size() < end) {
        content.resize(end);
    }
    for (std::uint64_t place = operation.offset; place < end;) {
        const std::uint64_t next = std::min(end, (place / sector + 1) * sector);
        if (!isTorn || Chance(50)) {
            content.replace(place, next - place, operation.bytes, place - operation.offset,
                            next - place);
        }
        place = next;
    }
}

void CrashImage::ChangeNames(const FileOperation& operation) {
    switch (operation.kind) {
        case Kind::Create: files[operation.path] = operation.file; break;
        case Kind::Remove: files.erase(operation.path); break;
        case Kind::Rename: {
            const auto former = files.find(operation.path);
            if (former != files.end() && former->second == operation.file) {
                files.erase(former);
            }
            files[operation.target] = operation.file;
            break;
        }
        case Kind::MakeFolder: folders[operation.path] = true; break;
        case Kind::RemoveFolder: folders[operation.path] = false; break;
        default: break;
    }
}

bool CrashImage::IsReachable(const std::string& path) const {
    for (std::string folder = FileOperation::FolderOf(path); !folder.empty();
         folder = FileOperation::FolderOf(folder)) {
        const auto found = folders.find(folder);
        if (found == folders.end() || !found->second) {
            return false;
        }
    }
    return true;
}

void CrashImage::Materialise(const std::string& root) const {
    namespace fs = std::filesystem;
    for (const auto& [path, there] : folders) {
        if (there && IsReachable(path)) {
            fs::create_directories(root + "/" + path);
            fs::permissions(root + "/" + path, fs::perms::owner_all);
        }
    }
    for (const auto& [path, number] : files) {
        if (!IsReachable(path)) {
            continue;
        }
        const auto content = contents.find(number);
        std::ofstream file(root + "/" + path, std::ios::binary);
        if (content != contents.end()) {
            file << content->second;
        }
        if (!file.flush()) {
            throw std::runtime_error("can't write " + root + "/" + path);
        }
    }
}

}  // namespace Brantel::Engine
