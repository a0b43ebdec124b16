#pragma once

#include "Media/ISplitter.h"
#include "Media/RateClock.h"
#include "Recording/LineField.h"
#include "Recording/RecordOptions.h"

#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Brantel::Tool {

// Makes chunks of the pieces of a stream: their time points, durations, keys and properties. One
// thread.
class ChunkMaker {
  public:
    // Throws Misuse when the options make no sense together.
    explicit ChunkMaker(const RecordOptions& options);

    // When the first chunk is, where a rate says when the others are.
    void SetStart(Time::TimePoint start) { begin = start; }
    // Whether there is a start to be set.
    bool NeedsStart() const { return rate.has_value(); }

    // For one stream.
    std::unique_ptr<ISplitter> MakeSplitter() const;

    // Fills the chunk with the next piece, which is used up. Throws std::runtime_error when it has
    // no time point or a wrong one.
    void Make(std::string& piece, ProtocolX::DataChunk& chunk);

  private:
    void ReadFormat(const RecordOptions& options);
    void ReadRate(const RecordOptions& options);
    void ReadProperties(const RecordOptions& options);
    void SetTimes(const std::string& piece, ProtocolX::DataChunk& chunk);
    Time::TimePoint Arrival();
    void MakeFromRecord(const std::string& piece, ProtocolX::DataChunk& chunk) const;

    enum class Format { Mjpeg, Raw, Lines, Record };

    Format format = Format::Raw;
    std::size_t chunkSize = 0;
    std::optional<Rate> rate;
    bool countsBytes = false;  // the rate is of bytes, not of chunks
    std::optional<LineField> timeField;
    Time::TimePoint fixedDuration;
    std::string key;
    std::map<std::string, std::string> properties;

    Time::TimePoint begin;
    std::uint64_t count = 0;
    std::uint64_t number = 0;  // of the piece, from 1
    Time::TimePoint last = Time::TimePoint::Nanoseconds(-1);
};

}  // namespace Brantel::Tool
