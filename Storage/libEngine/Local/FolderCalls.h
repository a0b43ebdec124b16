#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Engine {

class IFileCalls;

// The calls on paths, with failures as EngineError. Each names the file or folder. Thread-safe.
class FolderCalls {
  public:
    explicit FolderCalls(IFileCalls& calls) : calls(calls) {}

    // What lies there, not following a symbolic link; nothing when nothing does.
    std::optional<struct stat> GetStatus(const std::string& path) const;
    // Makes the folder and makes it lasting; fine when it is there.
    void MakeFolder(const std::string& path) const;
    void RemoveFolder(const std::string& path) const;  // fine when it is missing
    void RemoveFile(const std::string& path) const;    // fine when it is missing
    void Rename(const std::string& from, const std::string& to) const;
    // Sorted; empty for a missing folder.
    std::vector<std::string> List(const std::string& path) const;
    // Makes lasting what was created, renamed and removed in the folder.
    void FlushFolder(const std::string& path) const;
    // Bytes that a user who is not root can still take.
    std::uint64_t GetFreeSpace(const std::string& path) const;
    // Writes the file whole or not at all, lasting.
    void WriteFile(const std::string& path, const std::string& text) const;

    IFileCalls& GetCalls() const { return calls; }

    // The folder that a path lies in.
    static std::string ParentOf(const std::string& path);

  private:
    IFileCalls& calls;
};

}  // namespace Brantel::Engine
