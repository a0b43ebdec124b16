#include "TimePoint.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Brantel::Time {

std::string TimePoint::ToString() const {
    constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
    constexpr std::size_t fractionDigits = 9;
    // The magnitude as an unsigned number: the lowest count has no positive counterpart.
    const std::uint64_t magnitude = count < 0 ? 0 - Bits() : Bits();
    const std::string fraction = std::to_string(magnitude % nanosecondsPerSecond);
    std::string text = count < 0 ? "-" : "";
    text += std::to_string(magnitude / nanosecondsPerSecond);
    text += '.';
    text.append(fractionDigits - fraction.size(), '0');
    return text += fraction;
}

unsigned long TimePoint::Serialize(unsigned char* buffer) const noexcept {
    std::memcpy(buffer, &count, serializedSize);
    return serializedSize;
}

unsigned long TimePoint::Deserialize(const unsigned char* buffer) noexcept {
    std::memcpy(&count, buffer, serializedSize);
    return serializedSize;
}

long TimePoint::Deserialize(int fd) noexcept {
    std::int64_t value = 0;
    ssize_t result = 0;
    do {
        result = ::read(fd, &value, serializedSize);
    } while (result < 0 && errno == EINTR);
    count = value;
    return result;
}

}  // namespace Brantel::Time
