#pragma once

#include <sys/mman.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <type_traits>

namespace Brantel::Tests {

// A value in memory that a process shares with its children, and that outlives a killed one.
template <typename Value>
class SharedMemory {
    static_assert(std::is_trivially_destructible_v<Value>);

  public:
    SharedMemory() : value(new (Map()) Value) {}
    ~SharedMemory() { munmap(value, sizeof(Value)); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    Value& operator*() const { return *value; }
    Value* operator->() const { return value; }

  private:
    static void* Map() {
        void* const memory =
            mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        return memory;
    }

    Value* const value;
};

}  // namespace Brantel::Tests
