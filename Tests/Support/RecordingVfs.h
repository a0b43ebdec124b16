#pragma once

#include "Support/FileRecording.h"

#include <memory>
#include <string>

namespace Brantel::Engine {

// A VFS for SQLite over the system's, whose calls are recorded. Flushes are recorded only. Known to
// SQLite by its name for as long as it lives, which must be longer than any database that uses it.
class RecordingVfs {
  public:
    // Borrows the recording, below whose root all databases lie.
    explicit RecordingVfs(FileRecording& recording);
    ~RecordingVfs();
    RecordingVfs(const RecordingVfs&) = delete;
    RecordingVfs& operator=(const RecordingVfs&) = delete;

    const std::string& GetName() const;

  private:
    struct Registration;

    const std::unique_ptr<Registration> registration;
};

}  // namespace Brantel::Engine
