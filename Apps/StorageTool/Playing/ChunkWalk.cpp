#include "Playing/ChunkWalk.h"

#include <libProtocolX/StorageClientX.h>
#include <libServices/SocketDisconnected.h>

#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

const std::set<std::string>& ChunkWalk::NoBlocks() {
    static const std::set<std::string> keys{"\x01no block"};
    return keys;
}

ChunkWalk::ChunkWalk(Context& context, std::int64_t track, TrackRange range,
                     std::set<std::string> keys, bool backward)
    : context(context),
      track(track),
      keys(std::move(keys)),
      backward(backward),
      range(range),
      position(backward ? range.out : range.in - TimePoint::Nanoseconds(1)) {
    context.Ask([&](StorageClientX& client) {
        readerId = client.GetMaxReaderId(track) + 1;
        reader = client.GetTrackReader(track, readerId);
    });
}

ChunkWalk::~ChunkWalk() {
    context.Client().CloseTrackReader(track, readerId);
}

bool ChunkWalk::Next(DataChunk& chunk) {
    for (;;) {
        std::string failure;
        try {
            if (!Read(chunk)) {
                return false;
            }
            position = chunk.GetTimePoint();
            return backward ? position >= range.in : position < range.out;
        } catch (const SocketDisconnected&) {
            throw;
        } catch (const std::runtime_error& error) {
            failure = error.what();
            if (failure.find(" is damaged, ") == std::string::npos) {
                throw;
            }
        }
        position = StepOver();
        if (position < range.in || position >= range.out) {
            return false;
        }
        ++damaged;
        if (report) {
            report(position, failure);
        } else {
            Context::Warn("Left out: " + failure);
        }
    }
}

bool ChunkWalk::Read(DataChunk& chunk) {
    const Interrupts::Call call(context.Ends());
    return backward ? reader->GetPreviousChunk(chunk, position, keys)
                    : reader->GetNextChunk(chunk, position, keys);
}

TimePoint ChunkWalk::StepOver() {
    const Interrupts::Call call(context.Ends());
    return backward ? reader->PreviousTimePoint(position) : reader->NextTimePoint(position);
}

}  // namespace Brantel::Tool
