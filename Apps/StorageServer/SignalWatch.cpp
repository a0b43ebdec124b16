#include "SignalWatch.h"

#include "ServiceManager.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>

namespace Brantel::Server {

namespace {

constexpr std::chrono::milliseconds tellPause{5000};
// For the last lines of the log.
constexpr std::chrono::milliseconds farewell{500};

}  // namespace

SignalWatch::SignalWatch(const ServerSignals& givenSignals, ServerLog& log,
                         std::chrono::milliseconds limit)
    : log(log), limit(limit), signals(givenSignals.Open()) {
    thread = std::thread([this] { Run(); });
}

SignalWatch::~SignalWatch() {
    stop.Raise();
    thread.join();
    close(signals);
}

void SignalWatch::Started() {
    const std::lock_guard guard(mutex);
    hasStarted = true;
}

int SignalWatch::Wait() {
    std::unique_lock lock(mutex);
    heard.wait(lock, [this] { return end != 0 || reloads; });
    if (end != 0) {
        return end;
    }
    reloads = false;
    return SIGHUP;
}

void SignalWatch::Run() {
    pthread_setname_np(pthread_self(), "signals");
    for (;;) {
        std::array<pollfd, 2> events{{{stop.Get(), POLLIN, 0}, {signals, POLLIN, 0}}};
        poll(events.data(), events.size(), Pause());
        if (events[0].revents != 0) {
            return;
        }
        if (events[1].revents != 0) {
            Hear();
        }
        Look();
    }
}

// Until the next Look, in milliseconds; -1: none is needed.
int SignalWatch::Pause() {
    const std::lock_guard guard(mutex);
    if (!hasStarted) {
        return static_cast<int>(tellPause.count());
    }
    if (end == 0) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void SignalWatch::Hear() {
    signalfd_siginfo info{};
    while (read(signals, &info, sizeof info) == sizeof info) {
        const std::lock_guard guard(mutex);
        HearLocked(static_cast<int>(info.ssi_signo));
    }
}

void SignalWatch::HearLocked(int signal) {
    if (signal == SIGHUP) {
        reloads = true;
    } else if (!hasStarted) {
        ServiceManager::TellStopping();
        EndLocked(LogLevel::Info, "Stopped before the tracks were open", EXIT_SUCCESS);
    } else if (end == 0) {
        end = signal;
        deadline = Clock::now() + limit;
    }
    heard.notify_all();
}

void SignalWatch::Look() {
    const std::lock_guard guard(mutex);
    if (!hasStarted) {
        const auto passed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start);
        ServiceManager::TellStarting(
            2 * tellPause, "Opening the tracks, recovering what an earlier run left, for " +
                               std::to_string(passed.count()) + " s");
    } else if (end != 0 && Clock::now() >= deadline) {
        EndLocked(LogLevel::Error,
                  "Not everything has ended in time and is left as it is: a call hangs, perhaps in "
                  "the medium. What was answered is kept, flushed by the system",
                  EXIT_FAILURE);
    }
}

// Nobody is waited for, so nothing that is still in use is destroyed.
void SignalWatch::EndLocked(LogLevel level, const char* reason, int exitCode) {
    log.Say(level, reason);
    log.WaitUntilWritten(farewell);
    _exit(exitCode);
}

}  // namespace Brantel::Server
