#pragma once

#include <StorageTool/Media/HeldBytes.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// Cuts a stream of bytes into the pieces that become chunks. All pieces of a sound stream together
// are the stream; into which parts it is fed makes no difference to them, nor to an error. Memory:
// the limit of a piece and what is fed at once. One thread at a time.
class ISplitter {
  public:
    // A piece may have so many bytes, unless another limit is given: half of what a message may
    // have, so that properties find room beside it.
    static constexpr std::size_t defaultLimit = std::size_t{128} << 20U;

    virtual ~ISplitter() = default;
    ISplitter(const ISplitter&) = delete;
    ISplitter& operator=(const ISplitter&) = delete;

    // The next bytes of the stream: room for so many, to be filled, and how many have been.
    char* Room(std::size_t size) { return held.Room(size); }
    void Feed(std::size_t size) { held.Add(size); }
    // The same from memory.
    void Feed(std::string_view bytes) {
        bytes.copy(Room(bytes.size()), bytes.size());
        Feed(bytes.size());
    }

    // There will be no more of them.
    void Finish() { finished = true; }

    // The next whole piece. False when it takes more bytes, or when the finished stream has none
    // left. Throws std::runtime_error for a damaged stream, one that ends within a piece, and a
    // piece over the limit; the text names the place in the stream. Pieces before that have been
    // handed out.
    virtual bool Take(std::string& piece) = 0;

  protected:
    explicit ISplitter(std::size_t limit) : limit(limit) {}

    // Where in the stream the piece began that is not whole yet.
    std::uint64_t Offset() const { return held.Offset(); }
    // What has come of it, and perhaps of what follows.
    std::string_view View() const { return held.View(); }
    void Cut(std::size_t size, std::string& piece) { held.Cut(size, piece); }

    const std::size_t limit;
    bool finished = false;

  private:
    HeldBytes held;
};

}  // namespace Brantel::Tool
