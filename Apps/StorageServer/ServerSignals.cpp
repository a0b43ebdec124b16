#include "ServerSignals.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <system_error>

namespace Brantel::Server {

ServerSignals::ServerSignals() {
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    sigset_t blocked = signals;
    // A reader of the standard output that went away is no reason to end.
    sigaddset(&blocked, SIGPIPE);
    const int error = pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "Could not block signals");
    }
}

int ServerSignals::Open() const {
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "Could not wait for signals");
    }
    return descriptor;
}

}  // namespace Brantel::Server
