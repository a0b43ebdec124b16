#include "Support/FileRecording.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Brantel::Engine {

namespace {

using Kind = FileOperation::Kind;

std::string ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("can't open " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

std::string FileOperation::FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

FileRecording::FileRecording(std::string wantedRoot) : root(std::move(wantedRoot)) {
    AdoptFolder("");
    adoptedEnd = Tick();
}

void FileRecording::AdoptFolder(const std::string& path) {
    std::vector<std::filesystem::directory_entry> entries(
        std::filesystem::directory_iterator(root + "/" + path), {});
    std::sort(entries.begin(), entries.end());
    for (const std::filesystem::directory_entry& entry : entries) {
        const std::string name = entry.path().filename();
        const std::string below = path.empty() ? name : path + "/" + name;
        if (entry.is_directory()) {
            Add({.kind = Kind::MakeFolder, .path = below});
            AdoptFolder(below);
            continue;
        }
        const std::uint64_t file = NewFile();
        Add({.kind = Kind::Create, .file = file, .path = below});
        Add({.kind = Kind::Write, .file = file, .bytes = ReadAll(entry.path())});
        Add({.kind = Kind::FlushFile, .file = file});
    }
    Add({.kind = Kind::FlushFolder, .path = path});
}

void FileRecording::Add(FileOperation operation) {
    End(Begin(std::move(operation)), true);
}

std::size_t FileRecording::Begin(FileOperation operation) {
    const std::lock_guard lock(mutex);
    operation.begin = ++ticks;
    operations.push_back(std::move(operation));
    return operations.size() - 1;
}

void FileRecording::End(std::size_t index, bool done) {
    const std::lock_guard lock(mutex);
    FileOperation& operation = operations[index];
    operation.end = ++ticks;
    if (done) {
        Name(operation);
    } else {
        operation.kind = Kind::Failed;
    }
}

void FileRecording::EndWrite(std::size_t index, std::size_t written) {
    const std::lock_guard lock(mutex);
    operations[index].end = ++ticks;
    operations[index].bytes.resize(written);
}

void FileRecording::EndResize(std::size_t index, std::uint64_t size, bool changed) {
    const std::lock_guard lock(mutex);
    FileOperation& operation = operations[index];
    operation.end = ++ticks;
    operation.offset = size;
    operation.kind = changed ? Kind::Resize : Kind::Failed;
}

void FileRecording::Name(const FileOperation& operation) {
    switch (operation.kind) {
        case Kind::Create: files[operation.path] = operation.file; break;
        case Kind::Remove: files.erase(operation.path); break;
        case Kind::Rename:
            files.erase(operation.path);
            files[operation.target] = operation.file;
            break;
        default: break;
    }
}

std::optional<std::uint64_t> FileRecording::FindFile(const std::string& path) const {
    const std::optional<std::string> below = Below(path);
    const std::lock_guard lock(mutex);
    const auto found = below ? files.find(*below) : files.end();
    return found == files.end() ? std::nullopt : std::optional(found->second);
}

std::uint64_t FileRecording::NewFile() {
    const std::lock_guard lock(mutex);
    return ++lastFile;
}

std::optional<std::string> FileRecording::Below(std::string path) const {
    constexpr std::string_view itself = "/.";
    if (path.ends_with(itself)) {
        path.resize(path.size() - itself.size());
    }
    if (path == root) {
        return std::string();
    }
    if (path.starts_with(root + "/")) {
        return path.substr(root.size() + 1);
    }
    return std::nullopt;
}

std::uint64_t FileRecording::Tick() {
    const std::lock_guard lock(mutex);
    return ++ticks;
}

}  // namespace Brantel::Engine
