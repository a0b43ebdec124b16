#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Engine {

// One call that changes a file or a folder, or flushes it. Paths begin below the recording's root.
struct FileOperation {
    enum class Kind : std::uint8_t {
        Write,
        Resize,
        FlushFile,
        Create,  // an empty file
        Remove,
        Rename,
        MakeFolder,
        RemoveFolder,
        FlushFolder,
        Failed,  // changed nothing
    };
    static constexpr std::uint64_t never = UINT64_MAX;

    Kind kind = Kind::Failed;
    std::uint64_t file = 0;    // number of the file, whatever names it has had
    std::string path{};        // the name that is made, removed or renamed; the folder
    std::string target{};      // what it is renamed to
    std::uint64_t offset = 0;  // in the file; the size of a Resize
    std::string bytes{};
    std::uint64_t begin = 0;    // ticks: the call began
    std::uint64_t end = never;  // it has returned

    // The folder whose names it changes, "" for the root.
    std::string Folder() const { return FolderOf(path); }
    bool ChangesFile() const { return kind == Kind::Write || kind == Kind::Resize; }

    static std::string FolderOf(const std::string& path);
};

// The calls on the files below a folder, in the order in which they began, on a clock that ticks
// with each beginning and end. Thread-safe.
class FileRecording {
  public:
    // `root`: an existing folder. What it holds is known as flushed.
    explicit FileRecording(std::string root);

    // Records a call that begins now; returns what End takes.
    std::size_t Begin(FileOperation operation);
    void End(std::size_t index, bool done);
    // A write that was cut short.
    void EndWrite(std::size_t index, std::size_t written);
    // A change of the size whose outcome was not known before.
    void EndResize(std::size_t index, std::uint64_t size, bool changed);

    // What lies at a path, absolute or already below the root.
    std::optional<std::uint64_t> FindFile(const std::string& path) const;
    // A number for a file that is about to be created.
    std::uint64_t NewFile();

    // "" for the root itself, nothing for what does not lie below it. A "/." at the end is no part
    // of a path.
    std::optional<std::string> Below(std::string path) const;

    std::uint64_t Tick();
    // The tick at which all that the folder held in the beginning was flushed.
    std::uint64_t GetAdoptedEnd() const { return adoptedEnd; }
    // Not while anything is recorded.
    const std::vector<FileOperation>& GetOperations() const { return operations; }

  private:
    void AdoptFolder(const std::string& path);
    void Add(FileOperation operation);
    void Name(const FileOperation& operation);

    const std::string root;
    std::uint64_t adoptedEnd = 0;  // constant after construction
    mutable std::mutex mutex;
    // guarded by mutex
    std::vector<FileOperation> operations;
    std::map<std::string, std::uint64_t> files;  // by path, as they are called now
    std::uint64_t lastFile = 0;
    std::uint64_t ticks = 0;
};

}  // namespace Brantel::Engine
