#pragma once

#include "Support/FileRecording.h"

#include <libEngine/Local/FileCalls.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace Brantel::Engine {

// The system's calls, recorded. Flushes are recorded only: what they promise is tried on images
// made of the recording. Thread-safe.
class RecordingFileCalls : public FileCalls {
  public:
    // Borrows the recording, below whose root all files lie.
    explicit RecordingFileCalls(FileRecording& recording) : recording(recording) {}

    int Open(const char* path, int flags, mode_t mode) override;
    int Close(int descriptor) override;
    ssize_t WriteVector(int descriptor, const iovec* parts, int count, off_t offset) override;
    int FlushData(int descriptor) override { return Flush(descriptor); }
    int Flush(int descriptor) override;
    int Allocate(int descriptor, int mode, off_t offset, off_t size) override;
    int Truncate(int descriptor, off_t size) override;
    int MakeFolder(const char* path, mode_t mode) override;
    int RemoveFolder(const char* path) override;
    int RemoveFile(const char* path) override;
    int Rename(const char* from, const char* to) override;

  private:
    struct Opened {
        std::optional<std::string> folder;
        std::uint64_t file = 0;
    };

    std::string Below(const char* path) const;
    Opened Find(int descriptor) const;

    FileRecording& recording;
    mutable std::mutex mutex;
    std::map<int, Opened> opened;  // guarded by mutex
};

}  // namespace Brantel::Engine
