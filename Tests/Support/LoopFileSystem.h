#pragma once

#include "Support/TemporaryFolder.h"

#include <string>

namespace Brantel::Tests {

// A file system of its own in a file, mounted through a loop device, whose power can be cut. Seen
// by this process and its children alone, and gone with them, however they end.
class LoopFileSystem {
  public:
    enum class Kind { Ext4, Xfs };

    // Why none can be made here, which is also said loudly on the standard output; empty: it can.
    static std::string WhyNot(Kind kind);

    // Made and mounted. Throws std::system_error, std::runtime_error.
    explicit LoopFileSystem(Kind kind);
    ~LoopFileSystem();
    LoopFileSystem(const LoopFileSystem&) = delete;
    LoopFileSystem& operator=(const LoopFileSystem&) = delete;

    // Nothing that has not reached the medium reaches it any more; then it is mounted again. Nobody
    // may have files open there.
    void CutPower();
    // Begins again with an empty one.
    void Format();

    // Where it is mounted.
    std::string Folder() const { return folder.File("mounted"); }

  private:
    void Attach();
    void Mount();
    void Unmount();

    const Kind kind;
    const TemporaryFolder folder{TemporaryFolder::InMemory()};
    const std::string image;
    std::string device;
    int deviceFile = -1;
    bool mounted = false;
};

}  // namespace Brantel::Tests
