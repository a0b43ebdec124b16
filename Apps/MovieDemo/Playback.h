#pragma once

#include "Comparison.h"
#include "FrameMeter.h"
#include "Movie.h"

#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/StorageClientX.h>

#include <functional>
#include <set>
#include <string>

namespace Brantel::MovieDemo {

// Reads a recorded movie back by time, in every way a reader has, and compares every byte with the
// movie. Everything throws std::runtime_error at the first difference.
class Playback {
  public:
    // All are borrowed. The client is connected.
    Playback(ProtocolX::StorageClientX& client, long trackId, const Movie& movie,
             Comparison& comparison);

    // From before the beginning always the next chunk, until there is none. Saves every picture in
    // the folder.
    void WalkForward(const std::string& folder);
    // From the highest time point always the previous chunk.
    void WalkBackward();
    // Each frame once, in no order: at its time point, in its middle and in its last nanosecond.
    // Also where there is no frame.
    void Jump();
    // The small pictures alone.
    void ReadThumbnails();
    // From each time point to its neighbours, without chunks.
    void StepTimePoints();

    const FrameMeter& Forward() const { return forward; }
    const FrameMeter& Backward() const { return backward; }
    const FrameMeter& Jumping() const { return jumping; }
    const FrameMeter& Thumbnails() const { return thumbnails; }

  private:
    using Read = std::function<bool(ProtocolX::DataChunk&)>;

    ProtocolX::DataChunk ReadFrame(FrameMeter& meter, std::size_t frame, const Read& read);
    void CompareMetadata(std::size_t frame, const ProtocolX::DataChunk& chunk);
    void CompareData(const std::string& what, const ProtocolX::DataChunk& chunk, const char* key,
                     const std::string& expected);

    ProtocolX::IStorageReaderX& reader;
    const Movie& movie;
    Comparison& comparison;
    FrameMeter forward;
    FrameMeter backward;
    FrameMeter jumping;
    FrameMeter thumbnails;
};

}  // namespace Brantel::MovieDemo
