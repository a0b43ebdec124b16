#include "Supervision.h"

#include "ServiceManager.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace Brantel::Server {

namespace {

// Twice within the interval would do; three times leave room for a slow answer.
constexpr int looksPerInterval = 3;

std::chrono::microseconds PauseOf(std::chrono::microseconds aliveInterval) {
    const std::chrono::microseconds longest = Supervision::longestPause;
    return aliveInterval.count() > 0 ? std::min(longest, aliveInterval / looksPerInterval)
                                     : longest;
}

}  // namespace

Supervision::Supervision(ServerLog& log, Subject subject, std::chrono::microseconds aliveInterval)
    : log(log),
      subject(std::move(subject)),
      isWatched(aliveInterval.count() > 0),
      pause(PauseOf(aliveInterval)) {
    if (ServiceManager::Listens()) {
        thread = std::thread([this] { Run(); });
    }
}

Supervision::~Supervision() {
    {
        const std::lock_guard guard(mutex);
        ending = true;
    }
    ended.notify_all();
    if (thread.joinable()) {
        thread.join();
    }
}

void Supervision::Run() {
    pthread_setname_np(pthread_self(), "supervision");
    std::string told;
    std::unique_lock lock(mutex);
    do {
        lock.unlock();
        Look(told);
        lock.lock();
    } while (!ended.wait_for(lock, pause, [this] { return ending; }));
}

void Supervision::Look(std::string& told) {
    try {
        std::string status = subject.status();
        if (status != told) {
            ServiceManager::TellStatus(status);
            told = std::move(status);
        }
        if (isWatched) {
            subject.ask();
            ServiceManager::TellAlive();
        }
    } catch (const std::exception& error) {
        log.Say(LogLevel::Error,
                std::string("The service manager is not told that the server lives, because the "
                            "storage failed: ") +
                    error.what());
    }
}

}  // namespace Brantel::Server
