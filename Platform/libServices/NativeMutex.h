#pragma once

#include <pthread.h>

namespace Brantel::Services {

// A process-private pthread mutex with default attributes (not recursive). Used where an exchange
// on a connection must be atomic; a failure of the system's call is reported instead of ignored.
class NativeMutex {
  public:
    // Throws std::runtime_error "Could not init mutex".
    NativeMutex();
    ~NativeMutex();
    NativeMutex(const NativeMutex&) = delete;
    NativeMutex& operator=(const NativeMutex&) = delete;

    // Locks; throws std::runtime_error "Could not lock mutex".
    void Enter();
    // Unlocks; throws std::runtime_error "Could not unlock mutex". Only the thread that entered may
    // leave.
    void Leave();

    // The system's mutex, for what only it can do.
    pthread_mutex_t& NativeHandle() noexcept { return mutex; }

  private:
    pthread_mutex_t mutex;
};

}  // namespace Brantel::Services
