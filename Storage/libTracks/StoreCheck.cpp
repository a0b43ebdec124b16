#include "StoreCheck.h"

#include "RecordRepair.h"
#include "StorageCore.h"
#include "Track.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <map>
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
        for (const SegmentInfo& info : engine.ListSegments(id)) {
            CheckSegment(track, info.id);
        }
        if (const auto stored = engine.ReadRecord(TrackRecord::Key(id))) {
            const TrackRecord record = TrackRecord::Decode(stored->value);
            CheckOrder(id, record);
            CheckHeld(id, record);
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

// The ring's chunks are numbered without a gap, from its front on.
void StoreCheck::CheckOrder(Engine::TrackId track, const TrackRecord& record) {
    std::vector<SegmentInfo> ring;
    std::uint64_t next = record.ringFront;
    for (const SegmentInfo& info : engine.ListSegments(track)) {
        if (info.id.log == LogKind::Ring && info.count > 0) {
            ring.push_back(info);
            next = std::max(next, info.last.front);
        }
    }
    std::string place = "its beginning";
    for (const SegmentInfo& info : ring) {
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
