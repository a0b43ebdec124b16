#pragma once

#include <libServices/ConnectionLimits.h>
#include <libServices/IServiceConnection.h>
#include <libServices/SpinGovernor.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace Brantel::Services {

class ArrivalRoom;
class ArrivingMessage;
class SocketReader;
class TransferPace;
struct CrowdRule;
struct LimitCounts;

// A service connection on a connected stream socket.
//
// On the wire a message is its length as a base-128 varint and then its bytes (protobuf's
// "delimited" form, which the runtimes of other languages read and write):
//
//     offset 0            length n, 1 to 5 bytes, least significant group first
//     after the length    n bytes of message
//
// There is no call number: a connection whose stream can't be followed any more (lost, closed, a
// length over the limit, half a message) is of no further use, and every later Receive says so.
//
// One thread may send while another receives; Close and PeerGone may be called by any thread. Idle,
// a connection keeps at most 64 KiB of buffers.
class FileDescriptorServiceConnection : public IServiceConnection {
  public:
    // The longest message in bytes where nothing else is said: 256 MiB.
    static constexpr std::size_t defaultMessageLimit = std::size_t{256} * 1024 * 1024;
    // The highest limit that can be set, protobuf's own: 2 GiB - 1.
    static constexpr std::size_t highestMessageLimit = (std::size_t{1} << 31) - 1;

    // Takes the descriptor over (also when this throws) and makes it blocking and close-on-exec.
    // `messageLimit`: the longest message in bytes, either way. `governor` is borrowed and outlives
    // the connection. Throws std::invalid_argument when the limit is 0 or over highestMessageLimit,
    // std::system_error when the descriptor is not usable.
    explicit FileDescriptorServiceConnection(int fd, std::size_t messageLimit = defaultMessageLimit,
                                             SpinGovernor& governor = SpinGovernor::ForProcess());
    ~FileDescriptorServiceConnection() override;
    FileDescriptorServiceConnection(const FileDescriptorServiceConnection&) = delete;
    FileDescriptorServiceConnection& operator=(const FileDescriptorServiceConnection&) = delete;

    // What the other side may take of this one; for a listener, before the first message. A message
    // of more than 64 KiB takes room (borrowed; null: there is always room) step by step, each
    // before it takes that memory, and keeps it until the next Receive. `counts` (borrowed, may be
    // null) counts what is refused. Both outlive the connection. Throws std::system_error when the
    // socket can't be set up.
    void SetLimits(const ConnectionLimits& limits, ArrivalRoom* room, LimitCounts* counts);

    // For a listener, before the first message: from now on Receive returns false instead of
    // waiting when this connection has asked for nothing but what is quick for a while, and there
    // is a crowd (the rule is borrowed; null: never, from now on). HasLeft then tells that this was
    // why.
    void SetCrowdRule(const CrowdRule* rule) noexcept;
    // Whether the last Receive returned false for that reason.
    bool HasLeft() const noexcept { return hasLeft; }
    // For whom the thread has left the connection to, in the place of the receiving thread:
    // receives what has come, without waiting. True: there still is a crowd, and the next message
    // is whole and quick. Receive and Send then do not wait either until ServeOnThread: Receive
    // returns false when the next message is not such a one.
    bool ReceiveInCrowd() noexcept;
    // Whether nothing more is to be done before more comes: nothing has come and nothing is left to
    // be sent.
    bool IsIdle() const noexcept;
    // The connection has a thread again: Receive waits, after it has sent what is left.
    void ServeOnThread() noexcept {
        inCrowd = false;
        quickMessages = 0;
    }

    void Close() override;

    // As Close, but for what is sent: that still reaches the other side. What has come already may
    // still be received.
    void EndReceiving();

    // Returns true when the message was handed to the system, and also when the connection is lost:
    // that is remembered, and every Receive from then on reports it. Throws MessageNotSendable,
    // nothing written, when required fields are missing or the message is over the limit.
    bool Send(const google::protobuf::Message& message) override;

    // Returns true with a whole message; false only under a crowd rule. Throws SocketDisconnected
    // when the connection is lost (the text tells an end between two messages from one after so
    // many bytes of a message), and std::runtime_error when a whole message arrived that is not a
    // valid one of this type, among them MessageRefused when it is over one of the limits (the next
    // Receive gets the next message); `message` is then cleared.
    bool Receive(google::protobuf::Message& message) override;

    // Gives back the room of the last message received, whose memory has been freed. For the
    // receiving thread.
    void GiveRoomBack() noexcept;

    // True when the other side has closed its end or is gone. Reads nothing.
    bool PeerGone() const;

    // Why the connection was lost, as Receive reported it; empty while it has not, and after Close.
    // For the receiving thread.
    std::string WhyLost() const;
    // Why the last message that was not a valid one was refused; empty: there was none. For the
    // receiving thread.
    const std::string& WhyRefused() const { return refused; }

    // The longest message in bytes, either way.
    std::size_t MessageLimit() const { return messageLimit; }

  protected:
    // The connection's own descriptor, borrowed.
    int Descriptor() const { return fd; }

  private:
    [[noreturn]] void ThrowLost();
    bool MayLeave();
    bool NextIsQuick() const noexcept;
    void SendRest();
    std::size_t ReceiveLength();
    bool ReceiveBody(google::protobuf::Message& message, std::size_t size);
    bool ReceiveLarge(google::protobuf::Message& message, std::size_t size);
    std::size_t Admit(std::size_t size, std::size_t wanted);
    void EnterRoom(std::size_t size);
    void TakeRoom(std::size_t bytes);
    void Count(std::atomic<std::uint64_t> LimitCounts::*what);
    [[noreturn]] void ThrowInvalid(const google::protobuf::Message& message, std::size_t size);
    void SendSmall(const google::protobuf::Message& message, std::size_t size);
    void SendLarge(const google::protobuf::Message& message, std::size_t size);
    void BeginSlowSend();
    void FinishSend(long sent, long frameSize);
    void NoteSendError(int error);
    std::string Describe(const std::exception& failure) const;
    std::string WhereLost() const;

    // Constant after construction.
    const int fd;
    const std::size_t messageLimit;
    bool unixDomain = false;
    ConnectionLimits limits;
    ArrivalRoom* room = nullptr;
    LimitCounts* counts = nullptr;
    // Set by any thread, never taken back: `broken` once any of the others is.
    std::atomic<bool> broken{false};
    std::atomic<bool> closed{false};
    std::atomic<int> sendError{0};
    // Bytes of room that the last message received keeps.
    std::atomic<std::uint64_t> keptRoom{0};
    // The receiving thread's.
    std::unique_ptr<SocketReader> reader;
    const CrowdRule* crowd = nullptr;
    bool inCrowd = false;
    bool hasLeft = false;
    unsigned quickMessages = 0;  // one after the other; in a crowd those of this turn
    // What a send in a crowd left over: of the frame in `scratch`.
    std::size_t restBegin = 0;
    std::size_t restEnd = 0;
    std::unique_ptr<ArrivingMessage> arrival;  // in the room; made with the first large message
    bool hasWaited = false;                    // for room, in the message that is coming
    std::string refusal;                       // why the whole message that came was refused
    bool inStep = true;        // the stream stands between two messages; once lost, false for good
    std::string lost;          // why nothing can be received any more
    std::string refused;       // why a whole message was
    std::size_t bodySize = 0;  // of the message that is coming; 0 while its length is
    std::uint64_t bodyStart = 0;  // how much had come before a body that is over the buffer
    // The sending thread's.
    std::unique_ptr<TransferPace> sendPace;
    // Allocated on first use.
    std::unique_ptr<unsigned char[]> scratch;  // NOLINT(modernize-avoid-c-arrays)
    std::size_t scratchAllocated = 0;
};

}  // namespace Brantel::Services
