#pragma once

#include <stdexcept>

namespace Brantel::Services {

// A message was refused for its own sake: over the connection's limit, or required fields missing.
// Nothing was written and the connection is as usable as before.
class MessageNotSendable : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Brantel::Services
