#pragma once

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <string>

namespace Brantel::Tests {

// Whoever else opens the file waits until this object ends: a lease of the system. Not every file
// system has them.
class HeldFile {
  public:
    explicit HeldFile(const std::string& path)
        : descriptor(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
        // The system says that somebody wants the file by a signal that would end the program.
        signal(SIGIO, SIG_IGN);
        isHeld = descriptor >= 0 && fcntl(descriptor, F_SETLEASE, F_WRLCK) == 0;
    }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;
    ~HeldFile() {
        fcntl(descriptor, F_SETLEASE, F_UNLCK);
        close(descriptor);
    }
    bool IsHeld() const { return isHeld; }

  private:
    const int descriptor;
    bool isHeld = false;
};

}  // namespace Brantel::Tests
