#include "DefaultSocket.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace Brantel::Server {

ListenAddress DefaultSocket::Find(bool isRoot, const std::string& runtimeFolder) {
    if (!isRoot && runtimeFolder.empty()) {
        throw std::runtime_error(
            "No address: say where to listen by --listen, or set XDG_RUNTIME_DIR");
    }
    ListenAddress address;
    address.path = (isRoot ? std::string("/run") : runtimeFolder) + "/brantel/storage.sock";
    return address;
}

void DefaultSocket::MakeFolder(const ListenAddress& address) {
    constexpr mode_t entered = 0755;
    const std::string folder = std::filesystem::path(address.path).parent_path().string();
    if (mkdir(folder.c_str(), entered) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(),
                                folder +
                                    ": making the folder of the socket failed (--listen chooses "
                                    "another place)");
    }
}

}  // namespace Brantel::Server
