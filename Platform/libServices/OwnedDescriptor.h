#pragma once

#include <unistd.h>

#include <utility>

namespace Brantel::Services {

// A file descriptor with one owner, closed by the destructor. Empty (-1) after a move or a Release.
class OwnedDescriptor {
  public:
    OwnedDescriptor() noexcept = default;
    explicit OwnedDescriptor(int fd) noexcept : fd(fd) {}
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : fd(other.Release()) {}
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
    ~OwnedDescriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }

    bool IsOpen() const noexcept { return fd >= 0; }
    int Get() const noexcept { return fd; }

    // Hands the descriptor over to the caller, who closes it.
    int Release() noexcept { return std::exchange(fd, -1); }

  private:
    int fd = -1;
};

}  // namespace Brantel::Services
