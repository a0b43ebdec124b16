#include "Support/FailingSystem.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace {

bool mutexesFail = false;
// How many allocations of the thread succeed before one fails; none fails below 0.
thread_local int successesLeft = -1;

}  // namespace

extern "C" int pthread_mutex_init(pthread_mutex_t* mutex,
                                  const pthread_mutexattr_t* attributes) noexcept {
    if (mutexesFail) {
        return ENOMEM;
    }
    using Function = int (*)(pthread_mutex_t*, const pthread_mutexattr_t*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_mutex_init"));
    return next(mutex, attributes);
}

void* operator new(std::size_t size) {
    if (successesLeft >= 0 && successesLeft-- == 0) {
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Brantel::Tests {

FailingMutexes::FailingMutexes() {
    mutexesFail = true;
}

FailingMutexes::~FailingMutexes() {
    mutexesFail = false;
}

FailingAllocation::FailingAllocation(int successes) {
    successesLeft = successes;
}

FailingAllocation::~FailingAllocation() {
    successesLeft = -1;
}

bool FailingAllocation::HasFailed() const {
    return successesLeft < 0;
}

}  // namespace Brantel::Tests
