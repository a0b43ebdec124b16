#pragma once

namespace google::protobuf {
class Message;
}

// Connections that carry messages, and the listener that serves them.
namespace Brantel::Services {

// One connection on which whole protocol-buffer messages travel in both directions. Destroying it
// closes it. One thread may send while another receives; two threads may not do the same thing at
// once. Close may be called by any thread at any time before the destruction.
class IServiceConnection {
  public:
    virtual ~IServiceConnection() = default;

    // Ends the connection in both directions: a Receive that is blocked in another thread, and
    // every later one, reports the loss. What the other side already sent may be lost.
    virtual void Close() = 0;

    // Sends one message. Returns true when it was handed over, false when the connection failed (an
    // implementation may report the loss in Receive alone). Throws std::runtime_error when the
    // message can't be sent for its own sake.
    virtual bool Send(const google::protobuf::Message& message) = 0;

    // Waits for one whole message and parses it into `message`, whose former contents are replaced.
    // Returns true on success, false when the connection failed or the message could not be read
    // (then `message` is cleared). An implementation may throw SocketDisconnected for a lost
    // connection and std::runtime_error for an unreadable message instead.
    virtual bool Receive(google::protobuf::Message& message) = 0;

  protected:
    IServiceConnection() = default;
    IServiceConnection(const IServiceConnection&) = default;
    IServiceConnection& operator=(const IServiceConnection&) = default;
};

}  // namespace Brantel::Services
