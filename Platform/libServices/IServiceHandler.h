#pragma once

namespace Brantel::Services {

class IServiceConnection;

// What a server does with an accepted connection.
class IServiceHandler {
  public:
    virtual ~IServiceHandler() = default;

    // Serves one connection until it ends, on the caller's thread. The connection is borrowed. A
    // Receive that returns false ends it, too; a listener with a rule for what is quick may then
    // call it again, on another thread, for what comes later.
    virtual void Handle(IServiceConnection& connection) = 0;

  protected:
    IServiceHandler() = default;
    IServiceHandler(const IServiceHandler&) = default;
    IServiceHandler& operator=(const IServiceHandler&) = default;
};

}  // namespace Brantel::Services
