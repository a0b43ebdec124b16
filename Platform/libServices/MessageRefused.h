#pragma once

#include <stdexcept>

namespace Brantel::Services {

// A whole message arrived that has more than the connection's limits allow, and was dropped. The
// next one can be received.
class MessageRefused : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Brantel::Services
