#include "RecordRepair.h"

#include "CommandRecord.h"
#include "FieldWriter.h"
#include "IdSource.h"
#include "Protections.h"
#include "Track.h"
#include "TrackGeometry.h"
#include "TrackRecord.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace Brantel::Tracks {

namespace {

// A track whose settings are lost keeps what it has until somebody says what it is to do.
std::string LostProperties() {
    return Track::EncodeProperties({{"storage.retention", "stop"}});
}

constexpr const char* lostPropertiesText =
    "its properties are lost, and it recycles nothing until storage.retention is set again";

bool HasPossibleTimes(const Engine::SegmentInfo& info) {
    return info.first.timePoint >= 0 && info.last.timePoint >= info.first.timePoint &&
           info.last.duration >= 0 &&
           info.last.duration <= std::numeric_limits<std::int64_t>::max() - info.last.timePoint;
}

}  // namespace

void RecordRepair::Run() {
    for (const std::string& key : engine.ListDamagedRecords()) {
        ReplaceDamaged(key);
    }
    const std::vector<Engine::Reservation> reservations = engine.ListReservations();
    if (reservations.empty()) {
        return;
    }
    if (!engine.ReadRecord(storeKey)) {
        for (const char* key : {IdSource::commandIds, IdSource::protectionIds}) {
            if (!engine.ReadRecord(key)) {
                SkipIds(key);
            }
        }
    }
    for (const Engine::Reservation& reservation : reservations) {
        if (!engine.ReadRecord(TrackRecord::Key(reservation.track))) {
            RestoreTrack(reservation);
        }
    }
}

void RecordRepair::ReplaceDamaged(const std::string& key) {
    const auto rest = [&key](std::string_view prefix) { return key.substr(prefix.size()); };
    if (key == IdSource::commandIds || key == IdSource::protectionIds) {
        SkipIds(key);
    } else if (key.starts_with(Track::propertiesPrefix)) {
        say("Track " + rest(Track::propertiesPrefix) + ": " + lostPropertiesText);
        Write({{key, LostProperties()}});
    } else if (key.starts_with(Protections::prefix)) {
        say("Protection " + rest(Protections::prefix) + " is lost: its record is damaged");
        Write({{key, std::nullopt}});
    } else if (key.starts_with(CommandRecord::prefix)) {
        say("Command " + rest(CommandRecord::prefix) + " is forgotten: its record is damaged");
        Write({{key, std::nullopt}});
    } else if (key.starts_with(TrackRecord::prefix) || key == storeKey) {
        say("The record " + key + " is damaged");
        Write({{key, std::nullopt}});
    }
}

void RecordRepair::SkipIds(const std::string& key) {
    // Counting never gets as far as this, and a later repair goes further still.
    constexpr std::int64_t perSecond = std::int64_t{1} << 20U;
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count();
    std::string bytes;
    FieldWriter(bytes).Put(seconds * perSecond);
    say("The record " + key + " is lost: identifiers go on from " +
        std::to_string(seconds * perSecond));
    Write({{key, bytes}});
}

void RecordRepair::RestoreTrack(const Engine::Reservation& reservation) {
    TrackRecord record;
    record.phase = TrackRecord::Phase::Ready;
    record.capacity = geometry.CapacityOf(reservation);
    record.segmentSize = reservation.segmentSize;
    const std::string name = "Track " + std::to_string(reservation.track) + ": ";
    say(name + "its record is lost and was made again from its segments, with a capacity of " +
        std::to_string(record.capacity) + " bytes; protections that are not listed are lost");
    std::vector<Engine::RecordChange> changes{
        {TrackRecord::Key(reservation.track), record.Encode()}};
    const std::string propertiesKey = Track::PropertiesKey(reservation.track);
    if (!engine.ReadRecord(propertiesKey)) {
        say(name + lostPropertiesText);
        changes.push_back({propertiesKey, LostProperties()});
    }
    HoldWhatWasHeld(reservation.track);
    Write(changes);
}

bool RecordRepair::HasProtection(Engine::TrackId track) {
    const auto records = engine.ScanRecords(Protections::prefix);
    return std::any_of(records.begin(), records.end(), [track](const Engine::Record& record) {
        std::int64_t held = 0;
        Protections::Decode(record.value, held);
        return held == track;
    });
}

// Chunks lie in the held log because somebody protected them. Of segments with impossible times
// nothing is held: whoever loads the track refuses them.
void RecordRepair::HoldWhatWasHeld(Engine::TrackId track) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    std::int64_t begin = largest;
    std::int64_t end = -1;
    for (const Engine::SegmentInfo& info : engine.ListSegments(track)) {
        if (info.id.log == Engine::LogKind::Held && info.count > 0 && HasPossibleTimes(info)) {
            const std::uint64_t last = Protections::EndOf(info.last.timePoint, info.last.duration);
            begin = std::min(begin, info.first.timePoint);
            end = std::max(end, static_cast<std::int64_t>(std::min<std::uint64_t>(last, largest)));
        }
    }
    if (end < 0 || HasProtection(track)) {
        return;
    }
    IdSource ids(engine, IdSource::protectionIds);
    const std::int64_t id = ids.Next();
    ids.Settle();
    Write({{Protections::Key(id), Protections::Encode(track, {begin, end - begin})}});
    say("Track " + std::to_string(track) + ": protection " + std::to_string(id) +
        " stands in for lost ones, whose chunks lie from " + std::to_string(begin) + " to " +
        std::to_string(end));
}

void RecordRepair::Write(const std::vector<Engine::RecordChange>& changes) {
    if (!engine.WriteRecords(changes)) {
        throw std::runtime_error("the record " + changes.front().key +
                                 " was changed by somebody else");
    }
}

}  // namespace Brantel::Tracks
