#pragma once

#include <stdexcept>

// The connection to the other side has been lost: end of stream, reset, closed from another thread,
// or a stream that can no longer be followed (a frame over the limit, half a frame).
class SocketDisconnected : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
