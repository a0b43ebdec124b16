#include "Export/RunningChecksum.h"

#ifdef __x86_64__
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include <new>

namespace Brantel::Tool {

void RunningChecksum::Freer::operator()(State* state) const {
    XXH3_freeState(state);
}

RunningChecksum::RunningChecksum() : state(XXH3_createState()) {
    if (state == nullptr) {
        throw std::bad_alloc();
    }
    XXH3_64bits_reset(state.get());
}

RunningChecksum::RunningChecksum(const RunningChecksum& other) : RunningChecksum() {
    *this = other;
}

RunningChecksum& RunningChecksum::operator=(const RunningChecksum& other) {
    if (this != &other) {
        XXH3_copyState(state.get(), other.state.get());
    }
    return *this;
}

void RunningChecksum::Add(std::string_view bytes) {
    XXH3_64bits_update(state.get(), bytes.data(), bytes.size());
}

std::uint64_t RunningChecksum::Value() const {
    return XXH3_64bits_digest(state.get());
}

}  // namespace Brantel::Tool
