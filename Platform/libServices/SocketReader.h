#pragma once

#include "SpinGovernor.h"
#include "TransferPace.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace Brantel::Services {

// The receiving side of a stream socket: a small buffer that one `recv` fills with as much as there
// is, and reads past it straight into the caller's memory. Every wait may poll first, as the
// governor says. Losing the connection is a SocketDisconnected. Used by one thread at a time.
class SocketReader {
  public:
    // Enough for the frame length and the whole of a small message together.
    static constexpr std::size_t capacity = std::size_t{48} * 1024;
    // What the buffer begins with: thousands of connections that say little cost little.
    static constexpr std::size_t firstCapacity = 1024;

    // Both are borrowed and outlive the reader.
    SocketReader(const int& fd, SpinGovernor& governor) : fd(fd), governor(governor) {}

    const unsigned char* Data() const { return buffer.get() + begin; }
    std::size_t Available() const { return end - begin; }
    void Consume(std::size_t size) { begin += size; }
    // How many bytes have come from the socket altogether.
    std::uint64_t Received() const { return received; }

    // The pace that is asked of the other side in the middle of a message; none by default.
    void SetPace(const TransferPace& asked) { pace = asked; }
    // The message that comes keeps so many bytes of the room (borrowed) from others, see
    // TransferPace.
    void KeepRoom(const ArrivalRoom* room, std::uint64_t bytes) { pace.KeepRoom(room, bytes); }
    // Whether that was why the connection was lost.
    bool WasTooSlow() const { return tooSlow; }

    // A message of so many bytes has left, and the next wait is for what the other side says to it:
    // it may poll longer, by the time that the other side needs to copy and check them. Any thread.
    void ExpectAnswerTo(std::size_t bytes);

    // A message begins, as far as the pace goes.
    void BeginMessage() { pace.Restart(); }

    // Is asked before more of a message is received: how many bytes are wanted. It answers how many
    // may be, at least 1. What comes with others into the buffer is not asked for.
    using Admission = std::function<std::size_t(std::size_t)>;
    // Null: whatever comes is received.
    void SetAdmission(Admission asked) { admission = std::move(asked); }

    // Waits until at least `size` bytes are available, size <= capacity.
    void Fill(std::size_t size) {
        if (Available() < size) {
            ReceiveAtLeast(size, Wait::InMessage);
        }
    }

    // Waits for the first byte of the next message, for ever if it must.
    void FillFirst() {
        if (Available() == 0) {
            ReceiveAtLeast(1, Wait::BetweenMessages);
        }
    }

    // Receives what has come, without waiting, into what the buffer has left. A loss of the
    // connection is reported by the next wait.
    void ReceiveWhatCame() noexcept;

    // As the governor's.
    bool IsCrowd(std::uint32_t connections) { return governor.IsCrowd(memory, connections); }
    bool WasCrowd(std::uint32_t connections) { return governor.WasCrowd(memory, connections); }

    // Takes the whole buffer: a large message comes.
    void TakeWholeBuffer() {
        if (allocated < capacity) {
            Grow(capacity);
        }
    }

    // Moves exactly `size` bytes to `target`, first from the buffer, then from the socket.
    void Read(char* target, std::size_t size);

    // Reads `size` bytes behind the end of `text`. Memory is taken as the bytes arrive, so that an
    // announced length alone costs nothing.
    void Append(std::string& text, std::size_t size);

    // Drops the next `size` bytes.
    void Discard(std::size_t size);

  private:
    enum class Wait { BetweenMessages, InMessage };

    void Grow(std::size_t size);
    void ReceiveAtLeast(std::size_t size, Wait wait);
    std::size_t ReceiveSome(void* target, std::size_t size, Wait wait);
    long Poll(void* target, std::size_t size);
    long Block(void* target, std::size_t size, Wait wait);
    void CheckPace(std::size_t bytes);
    [[noreturn]] static void ThrowLost(long result);

    const int& fd;
    SpinGovernor& governor;
    SpinMemory memory;
    // In nanoseconds, added to the budget of the next poll; set by the sending thread.
    std::atomic<std::int64_t> patience{0};
    TransferPace pace;
    Admission admission;
    bool tooSlow = false;
    int failure = 0;                          // of the system, met by ReceiveWhatCame
    std::unique_ptr<unsigned char[]> buffer;  // NOLINT(modernize-avoid-c-arrays)
    std::size_t allocated = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::uint64_t received = 0;
};

}  // namespace Brantel::Services
