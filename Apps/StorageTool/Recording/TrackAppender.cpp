#include "Recording/TrackAppender.h"

#include "DurationText.h"
#include "ExitCodes.h"

#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/SocketDisconnected.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace Brantel::Tool {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

namespace {

// The server frees the writer of a connection when it notices that the connection has ended.
bool IsStillTaken(const std::string& text) {
    return text.find("already has a writer") != std::string::npos;
}

}  // namespace

TrackAppender::TrackAppender(Context& context, std::int64_t track,
                             std::optional<std::chrono::nanoseconds> retryFor)
    : context(context), track(track), retryFor(retryFor) {
    OpenWriter();
}

TrackAppender::~TrackAppender() {
    CloseWriter();
}

void TrackAppender::OpenWriter() {
    writer = context.Ask([&](StorageClientX& client) { return client.GetTrackWriter(track); });
}

void TrackAppender::CloseWriter() {
    if (writer != nullptr) {
        writer = nullptr;
        context.Ask([&](StorageClientX& client) { client.CloseTrackWriter(track); });
    }
}

TimePoint TrackAppender::LastOfTrack() {
    return context.Ask([&](StorageClientX& client) {
        const TimePoint last = client.GetTrackReader(track, 0)->LastTimePoint();
        client.CloseTrackReader(track, 0);
        return last;
    });
}

void TrackAppender::Append(const DataChunk& chunk, std::size_t bytes) {
    for (;;) {
        std::string reason;
        try {
            const Interrupts::Call call(context.Ends());
            writer->Append(chunk);
        } catch (const SocketDisconnected& error) {
            reason = error.what();
        }
        if (reason.empty() || Recover(chunk, reason)) {
            NoteStored(chunk, bytes);
            return;
        }
    }
}

void TrackAppender::NoteStored(const DataChunk& chunk, std::size_t bytes) {
    ++sums.chunks;
    sums.bytes += static_cast<std::int64_t>(bytes);
    sums.last = chunk.GetTimePoint();
    sums.end = sums.last + chunk.GetDuration();
    if (sums.chunks == 1) {
        sums.first = sums.last;
    }
}

// The new writer comes first: nobody else has one then, the lost connection included, so that the
// end of the track is the end.
bool TrackAppender::Recover(const DataChunk& chunk, const std::string& reason) {
    writer = nullptr;
    if (!retryFor) {
        context.Disconnect();
        throw std::runtime_error("The connection to " + context.Address().text +
                                 " was lost: " + reason + ". " + WhatIsKnown(chunk));
    }
    Reconnect(chunk, reason);
    ++sums.reconnects;
    const TimePoint end = LastOfTrack();
    if (end > chunk.GetTimePoint()) {
        throw std::runtime_error(
            "Track " + std::to_string(track) + " goes on to " + context.TimeOf(end) +
            " while the connection was lost: somebody else has written it. " + WhatIsKnown(chunk));
    }
    if (end < sums.last) {
        sums.lostAnswered = true;
        Context::Warn("Track " + std::to_string(track) + " ends at " + context.TimeOf(end) +
                      " although chunks up to " + context.TimeOf(sums.last) +
                      " were answered as stored: those in between are lost");
    }
    context.Note("Connected again; the track ends at " + context.TimeOf(end));
    return end == chunk.GetTimePoint();
}

void TrackAppender::Reconnect(const DataChunk& chunk, const std::string& reason) {
    constexpr std::chrono::milliseconds shortest(20);
    constexpr std::chrono::milliseconds longest(1000);
    context.Note("The connection to " + context.Address().text + " was lost (" + reason +
                 "); trying again");
    const auto begin = Interrupts::Clock::now();
    for (auto pause = shortest;; pause = std::min(2 * pause, longest)) {
        std::string why;
        if (TryReconnect(why)) {
            return;
        }
        if (retryFor->count() > 0 && Interrupts::Clock::now() - begin > *retryFor) {
            throw std::runtime_error("No connection to " + context.Address().text + " for " +
                                     DurationText::Print(retryFor->count()) + ": " + why + ". " +
                                     WhatIsKnown(chunk));
        }
        if (!context.Ends().Sleep(pause)) {
            throw Interrupted("Interrupted without a connection. " + WhatIsKnown(chunk));
        }
    }
}

bool TrackAppender::TryReconnect(std::string& why) {
    try {
        context.Disconnect();
        context.Client();
    } catch (const std::runtime_error& error) {
        why = error.what();
        return false;
    }
    try {
        OpenWriter();
        return true;
    } catch (const SocketDisconnected& error) {
        why = error.what();
    } catch (const std::runtime_error& error) {
        why = error.what();
        if (!IsStillTaken(why)) {
            throw;
        }
    }
    return false;
}

std::string TrackAppender::WhatIsKnown(const DataChunk& chunk) const {
    const std::string stored = sums.chunks == 0
                                   ? std::string("No chunk is known to be stored")
                                   : std::to_string(sums.chunks) + " chunks are stored, up to " +
                                         context.TimeOf(sums.last);
    return stored + "; the one at " + context.TimeOf(chunk.GetTimePoint()) +
           " may be or not, those after it are not";
}

}  // namespace Brantel::Tool
