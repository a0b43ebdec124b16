#pragma once

#include <stdexcept>
#include <string>

namespace Brantel::Tests {

// What a call that is to be refused throws: its text; "nothing" when it throws nothing. Exceptions
// of other types pass.
template <typename Exception = std::runtime_error, typename Call>
std::string RefusalOf(const Call& call) {
    try {
        call();
    } catch (const Exception& refusal) {
        return refusal.what();
    }
    return "nothing";
}

}  // namespace Brantel::Tests
