#include "Support/LoopFileSystem.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace Brantel::Tests {

namespace {

// Of ext4 and XFS alike: the file system stops at once, and its log is not written any more.
constexpr unsigned long shutdownRequest = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t withoutLogFlush = 2;

const char* NameOf(LoopFileSystem::Kind kind) {
    return kind == LoopFileSystem::Kind::Ext4 ? "ext4" : "xfs";
}

std::string MakerOf(LoopFileSystem::Kind kind) {
    return std::string("/sbin/mkfs.") + NameOf(kind);
}

off_t SizeOf(LoopFileSystem::Kind kind) {
    // The smallest that mkfs.xfs makes; of either hardly anything is ever written.
    return static_cast<off_t>(kind == LoopFileSystem::Kind::Ext4 ? 96 : 320) << 20U;
}

[[noreturn]] void Throw(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string FindReason(LoopFileSystem::Kind kind) {
    if (geteuid() != 0) {
        return "mounting needs root";
    }
    if (access(MakerOf(kind).c_str(), X_OK) != 0) {
        return MakerOf(kind) + " is not installed";
    }
    if (access("/dev/loop-control", R_OK | W_OK) != 0) {
        return "there are no loop devices";
    }
    try {
        const LoopFileSystem tried(kind);
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

}  // namespace

std::string LoopFileSystem::WhyNot(Kind kind) {
    std::string reason = FindReason(kind);
    if (!reason.empty()) {
        std::printf("NO POWER WAS CUT, nothing is proved here: %s\n", reason.c_str());
    }
    return reason;
}

LoopFileSystem::LoopFileSystem(Kind kind) : kind(kind), image(folder.File("image")) {
    // A process's own view of what is mounted ends with it, so that nothing stays behind.
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        Throw("a view of its own of what is mounted");
    }
    if (mkdir(Folder().c_str(), S_IRWXU) != 0) {
        Throw(Folder());
    }
    Format();
}

LoopFileSystem::~LoopFileSystem() {
    if (mounted) {
        umount2(Folder().c_str(), MNT_DETACH);
    }
    if (deviceFile >= 0) {
        close(deviceFile);
    }
}

void LoopFileSystem::Format() {
    if (mounted) {
        Unmount();
    }
    if (deviceFile >= 0) {
        close(deviceFile);
        deviceFile = -1;
    }
    const int file = open(image.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRWXU);
    if (file < 0 || ftruncate(file, SizeOf(kind)) != 0) {
        Throw(image);
    }
    close(file);
    const std::string command = MakerOf(kind) + " -q " + image;
    // The shell sees no text from outside.
    if (std::system(command.c_str()) != 0) {  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
        throw std::runtime_error(command + " failed");
    }
    Attach();
    Mount();
}

void LoopFileSystem::Attach() {
    const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    const int file = open(image.c_str(), O_RDWR | O_CLOEXEC);
    if (control < 0 || file < 0) {
        Throw("/dev/loop-control or " + image);
    }
    loop_config config{};
    config.fd = static_cast<std::uint32_t>(file);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    do {
        // Another process may have taken it meanwhile.
        device = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
        deviceFile = open(device.c_str(), O_RDWR | O_CLOEXEC);
        if (deviceFile < 0) {
            break;
        }
        if (ioctl(deviceFile, LOOP_CONFIGURE, &config) == 0) {
            break;
        }
        const int error = errno;
        close(deviceFile);
        deviceFile = -1;
        errno = error;
    } while (errno == EBUSY);
    const int error = errno;
    close(control);
    close(file);
    errno = error;
    if (deviceFile < 0) {
        Throw(device);
    }
}

void LoopFileSystem::Mount() {
    if (mount(device.c_str(), Folder().c_str(), NameOf(kind), 0, nullptr) != 0) {
        Throw("mounting " + device + " as " + NameOf(kind));
    }
    mounted = true;
}

void LoopFileSystem::Unmount() {
    if (umount2(Folder().c_str(), 0) != 0) {
        Throw("unmounting " + Folder());
    }
    mounted = false;
}

void LoopFileSystem::CutPower() {
    const int root = open(Folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::uint32_t flag = withoutLogFlush;
    if (root < 0 || ioctl(root, shutdownRequest, &flag) != 0) {
        Throw("cutting off " + Folder());
    }
    close(root);
    Unmount();
    Mount();
}

}  // namespace Brantel::Tests
