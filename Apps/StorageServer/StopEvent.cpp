#include "StopEvent.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Brantel::Server {

StopEvent::StopEvent() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

StopEvent::~StopEvent() {
    close(descriptor);
}

void StopEvent::Raise() const noexcept {
    eventfd_write(descriptor, 1);
}

}  // namespace Brantel::Server
