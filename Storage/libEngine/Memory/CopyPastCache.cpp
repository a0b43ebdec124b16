#include "Memory/CopyPastCache.h"

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>

#include <cstdint>
#endif

namespace Brantel::Engine {

#ifdef __SSE2__

void CopyPastCache(char* destination, const char* source, std::size_t size) noexcept {
    constexpr std::size_t line = 64;
    // Whole lines go past the cache; what lies before and behind them does not.
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(destination) % line;
    if (size < before + line) {
        std::memcpy(destination, source, size);
        return;
    }
    std::memcpy(destination, source, before);
    destination += before;
    source += before;
    size -= before;
    for (; size >= line; size -= line, destination += line, source += line) {
        const auto* const from = reinterpret_cast<const __m128i*>(source);
        auto* const to = reinterpret_cast<__m128i*>(destination);
        const __m128i first = _mm_loadu_si128(from);
        const __m128i second = _mm_loadu_si128(from + 1);
        const __m128i third = _mm_loadu_si128(from + 2);
        const __m128i fourth = _mm_loadu_si128(from + 3);
        _mm_stream_si128(to, first);
        _mm_stream_si128(to + 1, second);
        _mm_stream_si128(to + 2, third);
        _mm_stream_si128(to + 3, fourth);
    }
    std::memcpy(destination, source, size);
    // Such writes are not ordered among others: they end before anybody is told of them.
    _mm_sfence();
}

#else

void CopyPastCache(char* destination, const char* source, std::size_t size) noexcept {
    std::memcpy(destination, source, size);
}

#endif

}  // namespace Brantel::Engine
