#pragma once

#include "TransferPace.h"

#include <google/protobuf/io/zero_copy_stream.h>

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Brantel::Services {

// Sends every byte that `parts` describe (which it may change). Returns 0, or the error number when
// the connection failed, or TransferPace::tooSlow; then part of the bytes may have left.
int SendParts(int fd, iovec* parts, std::size_t count, TransferPace& pace);

// A large field leaves a Unix-domain socket faster when its copy in the system begins at a cache
// line as it does itself: a call with 1 MiB took a quarter less (Docs/Performance.md). The system
// copies each send to the beginning of fresh pages, so a field of at least this many bytes begins a
// send of its own, at its first whole cache line.
constexpr std::size_t alignedPartSize = std::size_t{64} * 1024;
constexpr std::size_t cacheLineSize = 64;

// As SendParts, for a Unix-domain socket: one send, and one more for each large part.
int SendAligned(int fd, iovec* parts, std::size_t count, TransferPace& pace);

// An output stream on a socket that sends large fields from where they lie in the message and
// collects the small ones in the caller's scratch memory. Lives for one message. After an error,
// which Error reports, nothing more is sent.
class GatherOutput : public google::protobuf::io::ZeroCopyOutputStream {
  public:
    // A field that does not fit into one block is referenced instead of copied.
    static constexpr std::size_t blockSize = std::size_t{4} * 1024;

    using Sender = int (*)(int fd, iovec* parts, std::size_t count, TransferPace& pace);

    // `scratch` is borrowed and holds at least one block; its first `used` bytes are sent first.
    // `sender`: SendParts or SendAligned. The pace, of the message, is borrowed.
    GatherOutput(int fd, Sender sender, TransferPace& pace, unsigned char* scratch,
                 std::size_t scratchSize, std::size_t used);

    bool Next(void** data, int* size) override;
    void BackUp(int count) override;
    std::int64_t ByteCount() const override { return byteCount; }
    bool WriteAliasedRaw(const void* data, int size) override;
    bool AllowsAliasing() const override { return true; }

    // Sends what has been collected. Returns what Error returns.
    int Flush();
    // 0, or what the send that failed returned.
    int Error() const { return error; }

  private:
    void AddPart(const void* data, std::size_t size);

    const int fd;
    const Sender sender;
    TransferPace& pace;
    unsigned char* const scratch;
    const std::size_t scratchSize;
    std::size_t used;
    std::int64_t byteCount = 0;
    int error = 0;
    std::size_t partCount = 0;
    std::array<iovec, 64> parts{};
};

}  // namespace Brantel::Services
