#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace Brantel::Tests {

// The place of a virtual operation of a class that declares a virtual destructor first, counted
// from 1 behind that: in the system's C++ ABI a pointer to it holds 1 + its offset in the table,
// where the destructor takes the first two places.
template <class Operation>
long PlaceOf(Operation operation) {
    std::ptrdiff_t value = 0;
    std::memcpy(&value, &operation, sizeof(value));
    const auto pointer = static_cast<std::ptrdiff_t>(sizeof(void*));
    return (value - 1) / pointer - 1;
}

template <class... Operations>
std::vector<long> PlacesOf(Operations... operations) {
    return {PlaceOf(operations)...};
}

// 1, 2, 3... as the places of operations that stand in their order.
inline std::vector<long> CountTo(long last) {
    std::vector<long> numbers;
    for (long number = 1; number <= last; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

}  // namespace Brantel::Tests
