#include "ServiceThread.h"

#include "SystemText.h"

#include <csignal>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Brantel::Services {

namespace {

struct Start {
    std::string name;
    std::function<void()> body;
};

void* Run(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    pthread_setname_np(pthread_self(), start->name.c_str());
    start->body();
    return nullptr;
}

// Blocks the signals for the calling thread, from which a new thread inherits them.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t signals;
        sigfillset(&signals);
        // Blocked, such a fault would end the process without the report that a handler gives.
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&signals, fault);
        }
        pthread_sigmask(SIG_SETMASK, &signals, &before);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

  private:
    sigset_t before{};
};

int StartThread(pthread_t& thread, std::size_t stackSize, Start& start) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error == 0) {
        error = pthread_attr_setstacksize(&attributes, stackSize);
        if (error == 0) {
            const BlockedSignals blocked;
            error = pthread_create(&thread, &attributes, &Run, &start);
        }
        pthread_attr_destroy(&attributes);
    }
    return error;
}

}  // namespace

ServiceThread::ServiceThread(std::size_t stackSize, const std::string& name,
                             std::function<void()> body) {
    constexpr std::size_t longestName = 15;
    auto start = std::make_unique<Start>(Start{name.substr(0, longestName), std::move(body)});
    const int error = StartThread(thread, stackSize, *start);
    if (error != 0) {
        throw std::runtime_error("Could not start a thread: " + SystemText(error));
    }
    // The new thread owns it.
    (void)start.release();
    joinable = true;
}

ServiceThread::~ServiceThread() {
    Join();
}

void ServiceThread::Join() noexcept {
    if (joinable) {
        pthread_join(thread, nullptr);
        joinable = false;
    }
}

}  // namespace Brantel::Services
