#pragma once

#include "Support/FileRecording.h"

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace Brantel::Engine {

// Which flushes did what they promise; the others are treated as if they had done nothing.
struct FlushHonesty {
    bool files = true;
    bool folders = true;
};

// Files and folders as a loss of power may leave them: everything that was flushed, and of the rest
// of what had begun any part. Writes are torn at 512 or 4096 bytes; changes of names in a folder
// are lost one by one.
class CrashImage {
  public:
    // `cut`: the tick at which the power goes. Borrows the recording, which nobody changes
    // meanwhile; the same random numbers make the same image.
    CrashImage(const FileRecording& recording, std::uint64_t cut, FlushHonesty honesty,
               std::mt19937_64& random);

    // Makes the files below an empty folder.
    void Materialise(const std::string& root) const;

  private:
    bool IsFlushed(const FileOperation& operation) const;
    void FindFlushes(const FileRecording& recording, FlushHonesty honesty);
    bool Chance(std::uint64_t percent) { return random() % 100 < percent; }
    void Apply(const FileOperation& operation);
    void ChangeFile(const FileOperation& operation, bool torn);
    void ChangeNames(const FileOperation& operation);
    bool IsReachable(const std::string& path) const;

    const std::uint64_t cut;
    std::mt19937_64& random;
    // Percent of what was not flushed that is there all the same, and of it that is torn.
    std::uint64_t kept = 0;
    std::uint64_t torn = 0;
    std::uint64_t sector = 0;

    // The ticks up to which they are flushed.
    std::map<std::uint64_t, std::uint64_t> flushedFiles;
    std::map<std::string, std::uint64_t> flushedFolders;

    std::map<std::uint64_t, std::string> contents;
    std::map<std::string, std::uint64_t> files;  // by path
    std::map<std::string, bool> folders;         // by path; true: it is there
};

}  // namespace Brantel::Engine
