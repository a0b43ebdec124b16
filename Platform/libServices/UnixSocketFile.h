#pragma once

#include "OwnedDescriptor.h"

#include <sys/stat.h>

#include <string>

namespace Brantel::Services {

// The name of a listening Unix-domain socket in the file system: made by the constructor, removed
// by the destructor if it is still this one. Several servers may do so with one path at the same
// time: the folder is locked meanwhile (flock), so that none takes another one's fresh socket for a
// stale one.
class UnixSocketFile {
  public:
    // Gives the socket the name `path` with the given access mode (0 to 0777) and lets it listen. A
    // socket file on which nobody answers is replaced. Throws std::runtime_error naming the path
    // when a server answers on it, when the file is no socket, when the folder stays locked for a
    // second, and with what the system said.
    UnixSocketFile(int socket, const std::string& path, unsigned int mode, int backlog);
    UnixSocketFile(const UnixSocketFile&) = delete;
    UnixSocketFile& operator=(const UnixSocketFile&) = delete;
    ~UnixSocketFile();

  private:
    void Bind(int socket, unsigned int mode) const;
    void RemoveStale() const;
    [[noreturn]] void Fail(const std::string& reason) const;

    const std::string path;
    // The folder is held open, so that the file is found again when the process has changed its
    // working folder.
    OwnedDescriptor folder;
    std::string name;
    struct stat identity {};
};

}  // namespace Brantel::Services
