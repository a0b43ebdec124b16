#include "Interrupts.h"

#include "DurationText.h"
#include "ExitCodes.h"

#include <climits>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace Brantel::Tool {

namespace {

constexpr std::array signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
// Only ends the call of the system that it comes upon.
constexpr int wakeSignal = SIGUSR1;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sigset_t SetOfSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) {
        sigaddset(&set, signal);
    }
    return set;
}

int MakeEvent() {
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) {
        Fail("eventfd");
    }
    return descriptor;
}

void Set(int event) {
    const std::uint64_t one = 1;
    // Fails only when it is set more often than 64 bits count.
    [[maybe_unused]] const ssize_t size = write(event, &one, sizeof one);
}

void Complain(const std::string& text) {
    std::string line = "brantel: " + text + "\n";
    // The process ends: there is nobody to tell that this failed.
    [[maybe_unused]] const ssize_t size = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

Interrupts::Interrupts(std::chrono::nanoseconds callLimit) : callLimit(callLimit) {
    const sigset_t set = SetOfSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    struct sigaction nothing {};
    nothing.sa_handler = [](int) {};
    sigaction(wakeSignal, &nothing, nullptr);
    signalDescriptor = signalfd(-1, &set, SFD_CLOEXEC);
    if (signalDescriptor < 0) {
        Fail("signalfd");
    }
    requestDescriptor = MakeEvent();
    endDescriptor = MakeEvent();
    thread = std::thread(&Interrupts::Run, this);
}

Interrupts::~Interrupts() {
    Set(endDescriptor);
    thread.join();
    close(signalDescriptor);
    close(requestDescriptor);
    close(endDescriptor);
}

bool Interrupts::Sleep(std::chrono::nanoseconds time) const {
    const auto deadline = Clock::now() + time;
    while (!Requested()) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return true;
        }
        pollfd watched{requestDescriptor, POLLIN, 0};
        poll(&watched, 1, static_cast<int>(std::min<decltype(left)>(left, INT_MAX)));
    }
    return false;
}

Interrupts::Call::Call(Interrupts& interrupts) : interrupts(interrupts) {
    const std::lock_guard guard(interrupts.mutex);
    entry = interrupts.calls.insert(interrupts.calls.end(), Clock::now());
}

Interrupts::Call::~Call() {
    const std::lock_guard guard(interrupts.mutex);
    interrupts.calls.erase(entry);
}

Interrupts::Waiting::Waiting(Interrupts& interrupts) : interrupts(interrupts) {
    const std::lock_guard guard(interrupts.mutex);
    entry = interrupts.waiting.insert(interrupts.waiting.end(), pthread_self());
}

Interrupts::Waiting::~Waiting() {
    const std::lock_guard guard(interrupts.mutex);
    interrupts.waiting.erase(entry);
}

void Interrupts::SetName(const std::string& callee) {
    const std::lock_guard guard(mutex);
    name = callee;
}

void Interrupts::SetLastWords(std::function<std::string()> words) {
    const std::lock_guard guard(mutex);
    lastWords = std::move(words);
}

void Interrupts::SetRestore(std::function<void()> restoration) {
    const std::lock_guard guard(mutex);
    restore = std::move(restoration);
}

void Interrupts::Run() {
    constexpr int tickMilliseconds = 20;
    for (;;) {
        std::array<pollfd, 2> watched{{{signalDescriptor, POLLIN, 0}, {endDescriptor, POLLIN, 0}}};
        const bool looksAtCalls = callLimit.count() > 0 || Requested();
        poll(watched.data(), watched.size(), looksAtCalls ? tickMilliseconds : -1);
        if (watched[1].revents != 0) {
            return;
        }
        if (watched[0].revents != 0) {
            TakeSignal();
        }
        CheckCalls();
        WakeWaiting();
    }
}

// Each time anew: the first signal may have come just before the call.
void Interrupts::WakeWaiting() {
    const std::lock_guard guard(mutex);
    if (Requested()) {
        for (const pthread_t thread : waiting) {
            pthread_kill(thread, wakeSignal);
        }
    }
}

void Interrupts::TakeSignal() {
    signalfd_siginfo signal{};
    if (read(signalDescriptor, &signal, sizeof signal) != sizeof signal) {
        return;
    }
    const std::lock_guard guard(mutex);
    if (Requested()) {
        EndNow("Ended at once by a second signal");
    }
    requestTime = Clock::now();
    requested.store(true, std::memory_order_release);
    Set(requestDescriptor);
}

void Interrupts::CheckCalls() {
    const std::lock_guard guard(mutex);
    if (calls.empty()) {
        return;
    }
    const auto now = Clock::now();
    const auto oldest = *std::min_element(calls.begin(), calls.end());
    if (callLimit.count() > 0 && now - oldest > callLimit) {
        EndNow(name + " did not answer within " + DurationText::Print(callLimit.count()) +
               " (--timeout)");
    }
    if (Requested() && now - std::max(requestTime, oldest) > grace) {
        EndNow("Interrupted; " + name + " does not answer");
    }
}

void Interrupts::EndNow(const std::string& reason) {
    if (restore) {
        restore();
    }
    Complain(reason);
    const std::string words = lastWords ? lastWords() : std::string();
    if (!words.empty()) {
        Complain(words);
    }
    _exit(ExitCodes::failed);
}

}  // namespace Brantel::Tool
