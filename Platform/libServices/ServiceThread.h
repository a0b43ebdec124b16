#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <string>

namespace Brantel::Services {

// A thread with a stack of a given size on which no signal handler of the program runs: every
// signal is blocked but those that report a fault of the thread itself. Must be joined before it is
// destroyed.
class ServiceThread {
  public:
    // Starts `body`. The name, cut to 15 bytes, is what the system's tools show. The stack is in
    // bytes. Throws std::runtime_error with what the system said.
    ServiceThread(std::size_t stackSize, const std::string& name, std::function<void()> body);
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;
    ~ServiceThread();

    // Waits for the end of the thread; returns at once when that has been done. One thread at a
    // time.
    void Join() noexcept;

  private:
    pthread_t thread{};
    bool joinable = false;
};

}  // namespace Brantel::Services
