#include "ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <system_error>

namespace Brantel::Server {

namespace {

// The status is one line.
void Tell(const std::string& state) {
    sd_notify(0, state.c_str());
}

}  // namespace

bool ServiceManager::Listens() {
    return std::getenv("NOTIFY_SOCKET") != nullptr;
}

void ServiceManager::TellReady(const std::string& status) {
    Tell("READY=1\nSTATUS=" + status);
}

void ServiceManager::TellStatus(const std::string& status) {
    Tell("STATUS=" + status);
}

void ServiceManager::TellStarting(std::chrono::microseconds more, const std::string& status) {
    Tell("EXTEND_TIMEOUT_USEC=" + std::to_string(more.count()) + "\nSTATUS=" + status);
}

void ServiceManager::TellReloading() {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    Tell("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(now.count()) +
         "\nSTATUS=Reading the settings again");
}

void ServiceManager::TellStopping() {
    Tell("STOPPING=1\nSTATUS=Stopping");
}

void ServiceManager::TellAlive() {
    Tell("WATCHDOG=1");
}

std::chrono::microseconds ServiceManager::AliveInterval() {
    std::uint64_t microseconds = 0;
    const bool isWatched = sd_watchdog_enabled(0, &microseconds) > 0;
    return std::chrono::microseconds(isWatched ? microseconds : 0);
}

std::vector<int> ServiceManager::TakeSockets() {
    const int count = sd_listen_fds(1);
    if (count < 0) {
        throw std::system_error(-count, std::generic_category(),
                                "The sockets that were passed (LISTEN_FDS) could not be taken");
    }
    std::vector<int> sockets(static_cast<std::size_t>(count));
    std::iota(sockets.begin(), sockets.end(), SD_LISTEN_FDS_START);
    return sockets;
}

}  // namespace Brantel::Server
