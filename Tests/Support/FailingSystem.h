#pragma once

#include <new>

// Compiled into a test program, FailingSystem.cpp takes the place of the system's functions for
// mutexes and memory, and makes them fail on demand.
namespace Brantel::Tests {

// While one lives no mutex can be made, by any thread.
class FailingMutexes {
  public:
    FailingMutexes();
    ~FailingMutexes();
    FailingMutexes(const FailingMutexes&) = delete;
    FailingMutexes& operator=(const FailingMutexes&) = delete;
};

// While one lives the allocation after `successes` of the thread that made it fails, once. That
// thread ends it, too.
class FailingAllocation {
  public:
    explicit FailingAllocation(int successes);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    bool HasFailed() const;
};

// Runs the call with an allocation that fails; whether the call failed with it.
template <typename Call>
bool FailsAfter(int successes, const Call& call) {
    try {
        const FailingAllocation failing(successes);
        call();
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

}  // namespace Brantel::Tests
