#pragma once

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/ITrackReader.h>

#include <cstdint>
#include <vector>

namespace Brantel::Tests {

// The time points of all chunks of the reader's track, in nanoseconds, walked forwards.
inline std::vector<std::int64_t> WalkTrack(BrantelStorageApi::ITrackReader& reader) {
    std::vector<std::int64_t> times;
    Protocol::TimePoint time;
    time.set_nanoseconds(static_cast<std::uint64_t>(-1));
    for (bool found = true;;) {
        reader.NextTimePoint(Protocol::TimePoint(time), time, found);
        if (!found) {
            return times;
        }
        times.push_back(static_cast<std::int64_t>(time.nanoseconds()));
    }
}

}  // namespace Brantel::Tests
