#include "UnixSocketFile.h"

#include "SocketAddress.h"
#include "SystemText.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace Brantel::Services {

namespace {

// Holds the folder's lock. A folder that this process may not read can't be locked; then the
// servers on it are not protected from each other's start.
class FolderLock {
  public:
    explicit FolderLock(int folder) : folder(folder), result(Lock()) {}
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock() { flock(folder, LOCK_UN); }

    bool IsTakenByOther() const { return result == EWOULDBLOCK; }

  private:
    // Asks again and again, because a wait in flock has no end of its own.
    int Lock() const {
        using namespace std::chrono_literals;
        constexpr int attempts = 100;
        constexpr auto betweenAttempts = 10ms;
        for (int attempt = 1;; ++attempt) {
            if (flock(folder, LOCK_EX | LOCK_NB) == 0) {
                return 0;
            }
            if (errno != EWOULDBLOCK || attempt == attempts) {
                return errno;
            }
            std::this_thread::sleep_for(betweenAttempts);
        }
    }

    const int folder;
    const int result;
};

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    // The slash of the root folder is its name.
    return path.substr(0, slash == 0 ? 1 : slash);
}

OwnedDescriptor OpenFolder(const std::string& folder) {
    OwnedDescriptor readable(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (readable.IsOpen() || errno != EACCES) {
        return readable;
    }
    return OwnedDescriptor(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// Returns 0 or the error number.
int BindTo(const SocketAddress& address, int socket) {
    return bind(socket, address.Get(), address.Size()) == 0 ? 0 : errno;
}

// What a connect to the path meets: 0 when a server answers, or the error number.
int Knock(const SocketAddress& address) {
    const OwnedDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool answered =
        socket.IsOpen() && connect(socket.Get(), address.Get(), address.Size()) == 0;
    // A full queue belongs to a server that is alive.
    return answered || errno == EAGAIN ? 0 : errno;
}

}  // namespace

UnixSocketFile::UnixSocketFile(int socket, const std::string& path, unsigned int mode, int backlog)
    : path(path), folder(OpenFolder(FolderOf(path))), name(path.substr(path.rfind('/') + 1)) {
    if (!folder.IsOpen()) {
        Fail(SystemText(errno));
    }
    constexpr unsigned int highestMode = 0777;
    if (mode > highestMode) {
        Fail("the access mode " + std::to_string(mode) + " is over 511 (octal 777)");
    }
    const FolderLock lock(folder.Get());
    if (lock.IsTakenByOther()) {
        Fail("the folder is locked by another program");
    }
    Bind(socket, mode);
    if (fchmodat(folder.Get(), name.c_str(), mode, 0) != 0 ||
        fstatat(folder.Get(), name.c_str(), &identity, AT_SYMLINK_NOFOLLOW) != 0 ||
        listen(socket, backlog) != 0) {
        const int error = errno;
        unlinkat(folder.Get(), name.c_str(), 0);
        Fail(SystemText(error));
    }
}

UnixSocketFile::~UnixSocketFile() {
    const FolderLock lock(folder.Get());
    struct stat now {};
    if (fstatat(folder.Get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
        now.st_dev == identity.st_dev && now.st_ino == identity.st_ino) {
        unlinkat(folder.Get(), name.c_str(), 0);
    }
}

void UnixSocketFile::Bind(int socket, unsigned int mode) const {
    const SocketAddress address = SocketAddress::OfUnixPath(path);
    // The new file takes its mode from here, less the umask: never wider than asked for, not even
    // for a moment.
    fchmod(socket, mode);
    int error = BindTo(address, socket);
    if (error == EADDRINUSE) {
        RemoveStale();
        error = BindTo(address, socket);
    }
    if (error != 0) {
        Fail(SystemText(error));
    }
}

void UnixSocketFile::RemoveStale() const {
    struct stat found {};
    if (fstatat(folder.Get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
        !S_ISSOCK(found.st_mode)) {
        Fail("the file exists and is not a socket");
    }
    const int error = Knock(SocketAddress::OfUnixPath(path));
    if (error == 0) {
        Fail("a server already answers there");
    }
    if (error != ECONNREFUSED || unlinkat(folder.Get(), name.c_str(), 0) != 0) {
        Fail(SystemText(error != ECONNREFUSED ? error : errno));
    }
}

void UnixSocketFile::Fail(const std::string& reason) const {
    throw std::runtime_error("Could not listen on " + path + ": " + reason);
}

}  // namespace Brantel::Services
