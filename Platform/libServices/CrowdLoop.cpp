#include "CrowdLoop.h"

#include "SystemText.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace Brantel::Services {

namespace {

// Taken from the system at once.
constexpr std::size_t eventsAtOnce = 64;

}  // namespace

CrowdLoop::CrowdLoop(Calls calls)
    : calls(std::move(calls)),
      poller(epoll_create1(EPOLL_CLOEXEC)),
      wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    // The owner of the socket that wakes is nobody.
    if (!poller.IsOpen() || !wake.IsOpen() || !Watch(wake.Get(), nullptr)) {
        throw std::runtime_error("Could not make an event loop: " + SystemText(errno));
    }
}

void CrowdLoop::Start(std::size_t stackSize) {
    thread.emplace(stackSize, "crowd", [this] { Run(); });
}

bool CrowdLoop::Watch(int socket, void* owner) noexcept {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = owner;
    return epoll_ctl(poller.Get(), EPOLL_CTL_ADD, socket, &event) == 0;
}

void CrowdLoop::LeaveAlone(int socket) noexcept {
    epoll_event ignored{};
    // Can't fail for a socket that is watched.
    (void)epoll_ctl(poller.Get(), EPOLL_CTL_DEL, socket, &ignored);
}

void CrowdLoop::AskAgain() noexcept {
    if (!isAsking) {
        nextTry = Clock::now() + tryAgainAfter;
        isAsking = true;
    }
}

void CrowdLoop::Stop() noexcept {
    stopping = true;
    (void)eventfd_write(wake.Get(), 1);
    thread.reset();
}

void CrowdLoop::Run() {
    calls.adopt();
    std::array<epoll_event, eventsAtOnce> events{};
    while (!stopping) {
        const int timeout = isAsking ? static_cast<int>(tryAgainAfter.count()) : -1;
        const int ready =
            epoll_wait(poller.Get(), events.data(), static_cast<int>(events.size()), timeout);
        for (int index = 0; index < ready && !stopping; ++index) {
            void* const owner = events.at(static_cast<std::size_t>(index)).data.ptr;
            if (owner != nullptr) {
                calls.serve(*this, owner);
            }
        }
        if (isAsking && Clock::now() >= nextTry) {
            nextTry = Clock::now() + tryAgainAfter;
            isAsking = calls.tryAgain();
        }
    }
}

}  // namespace Brantel::Services
