#pragma once

#include <StorageTool/Media/ISplitter.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// JPEG pictures that follow each other without anything between them. Their segments are stepped
// over by their lengths, so pictures within them do not end the one they belong to; the coded data
// behind a scan's header go on over stuffed bytes (FF 00), fill bytes and restart markers.
class MjpegSplitter : public ISplitter {
  public:
    explicit MjpegSplitter(std::size_t limit = defaultLimit) : ISplitter(limit) {}

    bool Take(std::string& piece) override;

  private:
    enum class State { Begin, Marker, Segment, Scan, Whole };

    // One step; false when it takes more bytes.
    bool Step(std::string_view view);
    bool Begin(std::string_view view);
    bool Marker(std::string_view view);
    void Enter(unsigned int marker);
    bool Segment(std::string_view view);
    bool Scan(std::string_view view);

    std::string PictureName() const;
    [[noreturn]] void Fail(std::size_t place, unsigned int byte, const std::string& wanted) const;
    [[noreturn]] void FailByLimit() const;

    State state = State::Begin;
    std::size_t position = 0;  // in the picture: everything before it is understood
    bool scanFollows = false;  // behind this segment
};

}  // namespace Brantel::Tool
