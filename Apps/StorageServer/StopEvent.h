#pragma once

namespace Brantel::Server {

// Tells a thread that waits in poll() to end. Thread-safe.
class StopEvent {
  public:
    // Throws std::system_error when the process has no descriptor left.
    StopEvent();
    ~StopEvent();
    StopEvent(const StopEvent&) = delete;
    StopEvent& operator=(const StopEvent&) = delete;

    // From now on the descriptor can be read from.
    void Raise() const noexcept;
    // To be polled only; open as long as this object.
    int Get() const { return descriptor; }

  private:
    const int descriptor;
};

}  // namespace Brantel::Server
