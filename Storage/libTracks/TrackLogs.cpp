#include "TrackLogs.h"

#include "TrackContext.h"
#include "TrackError.h"

#include <libEngine/IEngine.h>

#include <optional>
#include <utility>

namespace Brantel::Tracks {

void TrackLogs::WriteFront(const TrackContext& context, std::uint64_t front) {
    if (front <= record.ringFront) {
        return;
    }
    TrackRecord changed = record;
    changed.ringFront = front;
    const std::vector<Engine::RecordChange> changes{
        {TrackRecord::Key(context.track), changed.Encode(), std::nullopt}};
    if (!context.engine.WriteRecords(changes)) {
        throw TrackError(context.track, "its record was changed by somebody else");
    }
    record = std::move(changed);
}

}  // namespace Brantel::Tracks
