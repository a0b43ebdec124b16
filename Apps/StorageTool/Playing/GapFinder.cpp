#include "Playing/GapFinder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/StorageClientX.h>

#include <algorithm>

namespace Brantel::Tool {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

GapFinder::GapFinder(Context& context, std::int64_t track, TrackRange range)
    : context(context), track(track), range(range) {}

GapFinder::Sums GapFinder::Run(TimePoint shortest, const std::function<void(const Gap&)>& report,
                               const std::function<void(std::int64_t)>& progress) {
    Sums sums;
    if (range.IsEmpty()) {
        return sums;
    }
    const TimePoint end = context.Ask(
        [&](StorageClientX& client) { return client.GetEndOfTrack(static_cast<long>(track)); });
    const TimePoint last = std::min(range.out, end);
    TimePoint covered = CoveredFromBefore();
    const auto note = [&](TimePoint from, TimePoint to) {
        if (to - from >= shortest && to > from) {
            ++sums.gaps;
            sums.missing += (to - from).ToNanoseconds();
            report({from, to});
        }
    };
    ChunkWalk walk(context, track, range, ChunkWalk::NoBlocks());
    for (DataChunk chunk; walk.Next(chunk);) {
        context.CheckInterrupt("Interrupted at " + context.TimeOf(chunk.GetTimePoint()));
        note(covered, chunk.GetTimePoint());
        covered = std::max(covered, chunk.GetTimePoint() + chunk.GetDuration());
        progress(++sums.chunks);
    }
    note(covered, last);
    sums.span = (last - range.in).ToNanoseconds();
    return sums;
}

TimePoint GapFinder::CoveredFromBefore() {
    return context.Ask([&](StorageClientX& client) {
        DataChunk chunk;
        const bool found =
            client.GetTrackReader(track, 0)->GetChunk(chunk, range.in, ChunkWalk::NoBlocks());
        return found ? std::max(range.in, chunk.GetTimePoint() + chunk.GetDuration()) : range.in;
    });
}

}  // namespace Brantel::Tool
