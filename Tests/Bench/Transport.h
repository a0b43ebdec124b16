#pragma once

namespace Brantel::Bench {

// The kind of stream socket that a benchmark measures over; TCP is the loopback.
enum class Transport { Unix, Tcp };

}  // namespace Brantel::Bench
