#include "Support/CountedMemory.h"

#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace Brantel::Tests {

namespace {

std::atomic<std::size_t> live{0};
std::atomic<std::size_t> peak{0};
std::atomic<std::size_t> failingSize{SIZE_MAX};
std::atomic<std::size_t> successesLeft{0};
std::atomic<std::size_t> failuresLeft{0};
std::atomic<std::size_t> failures{0};

bool MustFail(std::size_t size) {
    if (size < failingSize.load()) {
        return false;
    }
    if (successesLeft.load() > 0) {
        successesLeft.fetch_sub(1);
        return false;
    }
    if (failuresLeft.load() == 0) {
        return false;
    }
    failuresLeft.fetch_sub(1);
    failures.fetch_add(1);
    return true;
}

void* Counted(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t now = live.fetch_add(malloc_usable_size(memory)) + malloc_usable_size(memory);
    std::size_t highest = peak.load();
    while (now > highest && !peak.compare_exchange_weak(highest, now)) {
    }
    return memory;
}

void Release(void* memory) noexcept {
    if (memory != nullptr) {
        live.fetch_sub(malloc_usable_size(memory));
        std::free(memory);
    }
}

}  // namespace

std::size_t CountedMemory::Live() {
    return live.load();
}

std::size_t CountedMemory::Peak() {
    return peak.load();
}

void CountedMemory::ForgetPeak() {
    peak.store(live.load());
}

void CountedMemory::Fail(std::size_t size, std::size_t after, std::size_t count) {
    failures.store(0);
    successesLeft.store(after);
    failuresLeft.store(count);
    failingSize.store(size);
}

std::size_t CountedMemory::StopFailing() {
    failingSize.store(SIZE_MAX);
    return failures.exchange(0);
}

}  // namespace Brantel::Tests

using Brantel::Tests::Counted;
using Brantel::Tests::MustFail;
using Brantel::Tests::Release;

namespace {

void* Allocate(std::size_t size) {
    return Counted(MustFail(size) ? nullptr : std::malloc(size == 0 ? 1 : size));
}

void* Allocate(std::size_t size, std::align_val_t alignment) {
    const auto boundary = static_cast<std::size_t>(alignment);
    const std::size_t whole = (size + boundary - 1) / boundary * boundary;
    return Counted(MustFail(size) ? nullptr : std::aligned_alloc(boundary, whole));
}

void* AllocateOrNull(std::size_t size) noexcept {
    try {
        return Allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

// Every form: those that are not replaced need not come here (a sanitizer's do not).
void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return AllocateOrNull(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return Allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return Allocate(size, alignment);
}
void operator delete(void* memory) noexcept {
    Release(memory);
}
void operator delete[](void* memory) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    Release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    Release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    Release(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    Release(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    Release(memory);
}
