#pragma once

#include "Context.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Brantel::Tool {

// Appends chunks to one track and knows what of them is stored. When the connection is lost it
// makes a new one, if it may, and goes on where the track ends: a chunk whose answer was lost is
// sent again only when it is not there. One thread.
class TrackAppender {
  public:
    // Opens the track's writer. `retryFor`: how long a lost server is waited for; not set: not at
    // all; 0: for ever. Throws std::runtime_error.
    TrackAppender(Context& context, std::int64_t track,
                  std::optional<std::chrono::nanoseconds> retryFor);
    TrackAppender(const TrackAppender&) = delete;
    TrackAppender& operator=(const TrackAppender&) = delete;
    // Closes the writer, when the server is still there.
    ~TrackAppender();

    // `bytes`: of data, for the sums. Throws what the storage refuses, and std::runtime_error or
    // Interrupted when the connection is lost for good; the text says what of this chunk is known.
    void Append(const ProtocolX::DataChunk& chunk, std::size_t bytes);

    struct Sums {
        std::int64_t chunks = 0;
        std::int64_t bytes = 0;
        std::int64_t reconnects = 0;
        Time::TimePoint first = Time::TimePoint::Nanoseconds(-1);
        Time::TimePoint last = Time::TimePoint::Nanoseconds(-1);
        Time::TimePoint end = Time::TimePoint::Nanoseconds(-1);
        // Chunks that were stored, and gone again after the server was lost, as far as known.
        bool lostAnswered = false;
    };
    const Sums& Stored() const { return sums; }

    // The last time point of the track; -1 when it is empty.
    Time::TimePoint LastOfTrack();

  private:
    void OpenWriter();
    void CloseWriter();
    void NoteStored(const ProtocolX::DataChunk& chunk, std::size_t bytes);
    // True when the chunk turns out to be stored.
    bool Recover(const ProtocolX::DataChunk& chunk, const std::string& reason);
    void Reconnect(const ProtocolX::DataChunk& chunk, const std::string& reason);
    bool TryReconnect(std::string& why);
    std::string WhatIsKnown(const ProtocolX::DataChunk& chunk) const;

    Context& context;
    const std::int64_t track;
    const std::optional<std::chrono::nanoseconds> retryFor;
    ProtocolX::IStorageWriterX* writer = nullptr;
    Sums sums;
};

}  // namespace Brantel::Tool
