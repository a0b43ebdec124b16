#include "AcceptLoop.h"

#include "SystemText.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Brantel::Services {

namespace {

// Between two looks at the other sockets and at the ended connections.
constexpr int acceptedAtOnce = 64;

}  // namespace

AcceptLoop::AcceptLoop() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake.IsOpen()) {
        throw std::runtime_error("Could not make an event descriptor: " + SystemText(errno));
    }
}

void AcceptLoop::Start(const std::vector<ListeningSocket>& listening, ConnectionThreads& threads,
                       std::size_t stackSize, std::chrono::milliseconds pause) {
    sockets = &listening;
    connections = &threads;
    acceptPause = pause;
    watched.assign(1, pollfd{wake.Get(), POLLIN, 0});
    for (const ListeningSocket& socket : listening) {
        watched.push_back(pollfd{socket.Get(), POLLIN, 0});
    }
    thread.emplace(stackSize, "accept", [this] { Run(); });
}

void AcceptLoop::Wake() const noexcept {
    // Can't fail but for a full counter, and then the thread wakes all the same.
    (void)eventfd_write(wake.Get(), 1);
}

void AcceptLoop::Stop() noexcept {
    stopping = true;
    Wake();
    thread.reset();
}

void AcceptLoop::Run() {
    connections->AdoptThisThread();
    while (!stopping) {
        Wait();
        connections->JoinEnded();
        if (pausedUntil || stopping) {
            continue;
        }
        for (std::size_t index = 0; index < sockets->size(); ++index) {
            if (watched[index + 1].revents != 0) {
                AcceptFrom((*sockets)[index]);
            }
        }
    }
}

// During a pause the sockets are not watched: the connections that wait there would end every wait.
void AcceptLoop::Wait() {
    int timeout = -1;
    if (pausedUntil) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*pausedUntil - Clock::now());
        timeout = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    }
    const int ready = poll(watched.data(), pausedUntil ? 1 : watched.size(), timeout);
    if (ready < 0) {
        // The process may watch no descriptor at all now, or the system has no memory.
        std::this_thread::sleep_for(acceptPause);
        return;
    }
    if ((watched.front().revents & POLLIN) != 0) {
        eventfd_t ignored = 0;
        (void)eventfd_read(wake.Get(), &ignored);
    }
    if (pausedUntil) {
        // Over, or a descriptor has become free. What the sockets have is asked anew.
        pausedUntil.reset();
        for (pollfd& entry : watched) {
            entry.revents = POLLIN;
        }
    }
}

void AcceptLoop::AcceptFrom(const ListeningSocket& socket) {
    for (int count = 0; count < acceptedAtOnce; ++count) {
        sockaddr_storage address{};
        socklen_t size = sizeof(address);
        OwnedDescriptor connection(
            accept4(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC));
        if (connection.IsOpen()) {
            pauseReported = false;
            connections->Serve(std::move(connection),
                               SocketAddress(reinterpret_cast<const sockaddr*>(&address), size));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            Pause(errno);
            return;
        }
    }
}

void AcceptLoop::Pause(int error) {
    pausedUntil = Clock::now() + acceptPause;
    if (!pauseReported) {
        pauseReported = true;
        connections->Report(ServiceListenerEvent::Kind::AcceptPaused, PeerAddress{},
                            SystemText(error));
    }
}

}  // namespace Brantel::Services
