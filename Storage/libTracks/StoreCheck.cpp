#include "StoreCheck.h"

#include "RecordRepair.h"
#include "RingEnd.h"
#include "StorageCore.h"
#include "Track.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

using Engine::LogKind;
using Engine::SegmentInfo;

namespace {

std::string NameOf(Engine::TrackId track) {
    return "Track " + std::to_string(track) + ": ";
}

}  // namespace

// Tells what an engine finds in one segment, as far as it concerns what readers get.
class StoreCheck::Observer : public Engine::IVerifyObserver {
  public:
    Observer(Track& track, StoreFindings& findings) : track(track), findings(findings) {}

    bool Report(std::uint64_t, std::uint64_t) override { return true; }

    void OnDamage(const Engine::Damage& damage) override {
        if (!damage.chunk) {
            findings.Add(NameOf(track.GetId()) + damage.text);
        } else if (IsServed(damage)) {
            findings.Add(NameOf(track.GetId()) + "the chunk at time point " +
                         std::to_string(damage.chunk->timePoint) + " is damaged: " + damage.text);
        }
    }

  private:
    bool IsServed(const Engine::Damage& damage) {
        try {
            return track.Serves({damage.segment, *damage.chunk});
        } catch (const std::exception&) {
            // Of a track that can't be loaded nothing is known to be superfluous.
            return true;
        }
    }

    Track& track;
    StoreFindings& findings;
};

StoreCheck::Sums StoreCheck::Run() {
    StorageOptions options;
    const TrackGeometry geometry(options);
    // Here what is made up for is a finding; the storage then finds nothing to repair.
    RecordRepair(engine, geometry, [this](const std::string& text) { findings.Add(text); }).Run();
    StorageCore core(engine, options);
    for (const auto& track : core.tracks.List()) {
        if (track->IsReady()) {
            CheckTrack(*track);
            ++sums.tracks;
        }
    }
    return sums;
}

void StoreCheck::CheckTrack(Track& track) {
    const Engine::TrackId id = track.GetId();
    try {
        track.CheckUsable();
        sums.chunks += static_cast<std::uint64_t>(
            track.GetNumberOfChunks(0, std::numeric_limits<std::int64_t>::max()));
    } catch (const std::exception& error) {
        findings.Add(error.what());
    }
    try {
        std::optional<TrackRecord> record;
        if (const auto stored = engine.ReadRecord(TrackRecord::Key(id))) {
            record = TrackRecord::Decode(stored->value);
        }
        const Ring ring = ReadRing(id, record ? record->ringFront : 0);
        for (const SegmentInfo& info : engine.ListSegments(id)) {
            if (info.id.log == LogKind::Held || ring.Holds(info)) {
                CheckSegment(track, info.id);
            }
        }
        if (record) {
            CheckOrder(id, ring);
            CheckHeld(id, *record);
        }
    } catch (const std::exception& error) {
        findings.Add(NameOf(id) + error.what());
    }
}

void StoreCheck::CheckSegment(Track& track, const Engine::SegmentId& id) {
    ++sums.segments;
    Observer observer(track, findings);
    engine.Verify(id, 0, observer);
}

StoreCheck::Ring StoreCheck::ReadRing(Engine::TrackId track, std::uint64_t front) {
    Ring ring{{}, 0};
    for (const SegmentInfo& info : engine.ListSegments(track)) {
        if (info.id.log == LogKind::Ring) {
            ring.segments.push_back(info);
        }
    }
    // Behind the list: what is removed meanwhile is not missing.
    front = std::max(front, engine.GetRingFront(track));
    ring.front = front;
    // What does not belong to the ring any more still tells what had been recycled for it.
    for (const SegmentInfo& info : ring.segments) {
        ring.front = info.count > 0 ? std::max(ring.front, info.last.front) : ring.front;
    }
    ring.segments.resize(FindRingEnd(ring.segments, front));
    return ring;
}

// What was dropped may be written over in part, or be the rest of what a loss of power took.
bool StoreCheck::Ring::Holds(const SegmentInfo& info) const {
    const bool isDropped = info.count > 0 && info.last.ordinal < front;
    return !segments.empty() && info.id.number <= segments.back().id.number && !isDropped;
}

// The ring's chunks are numbered without a gap, from its front on.
void StoreCheck::CheckOrder(Engine::TrackId track, const Ring& ring) {
    std::uint64_t next = ring.front;
    std::string place = "its beginning";
    for (const SegmentInfo& info : ring.segments) {
        if (info.count == 0) {
            continue;
        }
        if (info.first.ordinal > next) {
            findings.Add(NameOf(track) + std::to_string(info.first.ordinal - next) +
                         " chunks are missing after " + place + " and before " +
                         engine.Describe(info.id));
        }
        next = std::max(next, info.last.ordinal + 1);
        place = engine.Describe(info.id);
    }
}

void StoreCheck::CheckHeld(Engine::TrackId track, const TrackRecord& record) {
    std::map<std::uint64_t, std::uint64_t> counts;  // of chunks, by segment
    for (const SegmentInfo& info : engine.ListSegments(track)) {
        if (info.id.log == LogKind::Held) {
            counts[info.id.number] = info.count;
        }
    }
    for (const TrackRecord::HeldRun& run : record.heldRuns) {
        const std::uint64_t found = counts[run.segment];
        const std::uint64_t first = std::max<std::uint64_t>(run.begin, found);
        if (run.end > first) {
            findings.Add(NameOf(track) + std::to_string(run.end - first) +
                         " protected chunks are missing, of segment " +
                         std::to_string(run.segment));
        }
    }
}

}  // namespace Brantel::Tracks
