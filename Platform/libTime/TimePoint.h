#pragma once

#include <compare>
#include <cstdint>
#include <string>

// Time points.
namespace Brantel::Time {

// A point or a span of time: a plain signed 64-bit count of nanoseconds, without an epoch of its
// own. A value type; nothing here allocates except ToString. Arithmetic is two's complement and
// wraps: it never saturates and never fails.
class TimePoint {
  public:
    // Zero nanoseconds.
    constexpr TimePoint() noexcept = default;

    // So many nanoseconds.
    static constexpr TimePoint Nanoseconds(long count) noexcept {
        TimePoint result;
        result.count = count;
        return result;
    }

    // The largest signed 64-bit count: later than every time point that a chunk can have.
    static constexpr TimePoint GetHighestTimePoint() noexcept { return Nanoseconds(INT64_MAX); }

    // Sets the value.
    constexpr void FromNanoseconds(long nanoseconds) noexcept { count = nanoseconds; }
    // The count of nanoseconds.
    constexpr long ToNanoseconds() const noexcept { return count; }

    // By the count.
    constexpr auto operator<=>(const TimePoint&) const noexcept = default;

    // The difference of the counts.
    constexpr TimePoint operator-(const TimePoint& other) const noexcept {
        return FromBits(Bits() - other.Bits());
    }
    // The sum of the counts.
    constexpr TimePoint operator+(const TimePoint& other) const noexcept {
        return FromBits(Bits() + other.Bits());
    }
    // Subtracts the other count from this one.
    constexpr TimePoint& operator-=(const TimePoint& other) noexcept {
        return *this = *this - other;
    }
    // Adds the other count to this one.
    constexpr TimePoint& operator+=(const TimePoint& other) noexcept {
        return *this = *this + other;
    }

    // Seconds, a point and nine digits: "-0.000000001", "12.500000000".
    std::string ToString() const;

    // The size of the serialized form in bytes, the same for every time point. The form is the
    // count in the host's byte order (little-endian on x86-64).
    static constexpr unsigned long serializedSize = sizeof(std::int64_t);
    // serializedSize.
    constexpr unsigned long GetSerializedSize() const noexcept { return serializedSize; }

    // Writes the form at `buffer`, which holds at least serializedSize bytes; returns the bytes
    // written.
    unsigned long Serialize(unsigned char* buffer) const noexcept;

    // Reads the form at `buffer`, which holds at least serializedSize bytes; returns the bytes
    // consumed.
    unsigned long Deserialize(const unsigned char* buffer) noexcept;

    // Reads the form from the descriptor's position with one `read` (again when a signal interrupts
    // it). Returns what `read` returned: fewer than serializedSize bytes at the end of a file, -1
    // on an error (errno is set). Bytes that did not come count as zero.
    long Deserialize(int fd) noexcept;

  private:
    constexpr std::uint64_t Bits() const noexcept { return static_cast<std::uint64_t>(count); }
    static constexpr TimePoint FromBits(std::uint64_t bits) noexcept {
        return Nanoseconds(static_cast<std::int64_t>(bits));
    }

    std::int64_t count = 0;
};

}  // namespace Brantel::Time
