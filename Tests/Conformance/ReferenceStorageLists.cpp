// The part of ReferenceStorage that knows workers, properties, protections and lists.
#include "Conformance/ReferenceStorage.h"
#include "Conformance/ReferenceText.h"

#include <algorithm>
#include <utility>

namespace Brantel::Tracks {

using Reference::Behind;
using Reference::highest;
using Reference::KeysAsText;
using Reference::page;
using Reference::Refusal;
using Reference::Text;

// ---- workers ----

std::string ReferenceStorage::ExpectWorker(Verb verb, const Numbers& numbers, const Answer& given) {
    const auto slot = static_cast<std::size_t>(numbers[0]);
    const bool isWriter =
        verb == Verb::OpenWriter || verb == Verb::CloseWriter || verb == Verb::WriterTrack;
    Worker& worker = isWriter ? writers.at(slot) : readers.at(slot);
    switch (verb) {
        case Verb::ReaderTrack:
        case Verb::WriterTrack: return Text(worker.track);
        case Verb::CloseReader:
        case Verb::CloseWriter: worker = {}; return "closed";
        default: break;
    }
    worker = {};
    Get(numbers[1]);
    const bool isTaken = std::any_of(writers.begin(), writers.end(), [&](const Worker& other) {
        return other.id != 0 && other.track == numbers[1];
    });
    if (isWriter && isTaken) {
        return "Track " + Text(numbers[1]) + " already has a writer";
    }
    if (given.id <= lastWorker) {
        return "worker " + Text(given.id) + " was used before";
    }
    lastWorker = given.id;
    worker = {given.id, numbers[1], 0};
    return "open";
}

// ---- properties ----

std::string ReferenceStorage::ExpectProperties(Verb verb, const Numbers& numbers) {
    Track& track = Get(numbers[0]);
    if (verb == Verb::GetProperties) {
        std::string text;
        for (const auto& [key, value] : track.properties) {
            text += key + '=' + value + "; ";
        }
        return text;
    }
    std::map<std::string, std::string> changed = track.properties;
    for (const std::int64_t number : {numbers[1], numbers[2]}) {
        const auto [key, value] = PropertyOf(number);
        if (key.empty()) {
            throw Refusal(numbers[0], "a property has an empty key");
        }
        if (verb == Verb::SetProperties) {
            changed[key] = value;
        } else {
            changed.erase(key);
        }
    }
    if (changed.contains("storage.colour")) {
        throw Refusal(numbers[0],
                      "property storage.colour is no setting, known are storage.durability and "
                      "storage.retention");
    }
    if (changed.contains("storage.retention") && changed["storage.retention"] == "often") {
        throw Refusal(numbers[0], "property storage.retention is often, neither loop nor stop");
    }
    track.properties = std::move(changed);
    return "done";
}

// ---- protections ----

std::string ReferenceStorage::ExpectProtect(const Numbers& numbers, const Answer& given) {
    const auto& [id, time, duration, unused, unusedToo] = numbers;
    const Track& track = Get(id);
    const std::string what = "a protection of " + Text(duration) + " nanoseconds at " + Text(time);
    if (time < 0) {
        throw Refusal(id, what + " begins below 0");
    }
    if (duration < 0) {
        throw Refusal(id, what + " has a duration below 0");
    }
    if (duration > highest - time) {
        throw Refusal(id, what + " ends behind the largest time point, " + Text(highest));
    }
    const std::int64_t beginning = BeginningOf(track);
    if (beginning >= 0 && Behind(time, duration) <= static_cast<std::uint64_t>(beginning)) {
        throw Refusal(id,
                      what + " ends at or before the beginning of the track, " + Text(beginning));
    }
    const auto count = std::count_if(protections.begin(), protections.end(), [&](const auto& item) {
        return item.second.track == numbers[0];
    });
    if (static_cast<std::size_t>(count) >= options.protectionsLimit) {
        throw Refusal(id, "it has " + Text(std::int64_t{count}) + " protections, the limit is " +
                              std::to_string(options.protectionsLimit));
    }
    if (given.id <= lastProtection) {
        return "protection " + Text(given.id) + " was used before";
    }
    lastProtection = given.id;
    protections[given.id] = {id, time, duration};
    return "protected";
}

std::string ReferenceStorage::ExpectUnprotect(std::int64_t id) {
    const auto found = protections.find(id);
    if (found == protections.end()) {
        return "Protection " + Text(id) + " does not exist";
    }
    const std::int64_t trackId = found->second.track;
    protections.erase(found);
    Track& track = Get(trackId);
    std::erase_if(track.chunks, [&](const auto& item) {
        return item.second.place == Place::Held &&
               !IsHeld(trackId, item.first, item.second.duration);
    });
    return Infos({trackId});
}

// ---- lists ----

// The answer may be less than the very largest by less than one segment.
std::string ReferenceStorage::CheckSpace(std::int64_t space) const {
    const auto fits = [this](std::uint64_t capacity) {
        return capacity == 0 || Reserved(capacity, SegmentSizeFor(capacity)) <= Available();
    };
    const auto capacity = static_cast<std::uint64_t>(space);
    if (space < 0 || capacity % page != 0 || !fits(capacity)) {
        return "remaining space that can't be taken, " + Text(space);
    }
    for (std::uint64_t more = capacity + SegmentSizeFor(capacity) + page; more <= limit;
         more += page) {
        if (fits(more)) {
            return "remaining space of " + Text(space) + " where " + Text(more) + " fits";
        }
    }
    return "space";
}

std::string ReferenceStorage::ListProtections() const {
    std::string text;
    for (const auto& [trackId, track] : tracks) {
        for (const auto& [id, protection] : protections) {
            if (protection.track == trackId) {
                text += Text(id) + " of " + Text(trackId) + " [" + Text(protection.time) + ' ' +
                        Text(protection.time + protection.duration) + "); ";
            }
        }
    }
    return text;
}

std::string ReferenceStorage::ListWorkers() const {
    std::map<std::int64_t, std::int64_t> all;
    for (const auto& list : {readers, writers}) {
        for (const Worker& worker : list) {
            if (worker.id != 0) {
                all[worker.id] = worker.track;
            }
        }
    }
    std::string text;
    for (const auto& [id, track] : all) {
        text += ' ' + Text(track);
    }
    return KeysAsText(all) + " on" + text;
}

std::string ReferenceStorage::DescribeWorker(std::int64_t id) const {
    for (std::size_t slot = 0; slot < slotCount && id != 0; ++slot) {
        for (const auto* list : {&readers, &writers}) {
            const Worker& worker = list->at(slot);
            if (worker.id == id) {
                return Text(id) + (list == &readers ? " READER " : " WRITER ") +
                       Text(worker.track) + ' ' + std::to_string(100 + slot) + " 192.0.2." +
                       std::to_string(slot) + ' ' + Text(worker.payload) + "; ";
            }
        }
    }
    return Text(id) + " NONE 0 0  0; ";
}

std::string ReferenceStorage::ExpectList(Verb verb, const Numbers& numbers, const Answer& given) {
    switch (verb) {
        case Verb::ListTracks: return KeysAsText(tracks);
        case Verb::ListProtections: return ListProtections();
        case Verb::ListWorkers: return ListWorkers();
        case Verb::DescribeWorkers:
            return DescribeWorker(numbers[0]) + DescribeWorker(999999) + DescribeWorker(numbers[1]);
        case Verb::DescribeCommand: {
            const auto found = commands.find(numbers[0]);
            return found == commands.end() ? "NOT_EXIST 0" : found->second;
        }
        case Verb::RemainingSpace: return CheckSpace(given.space);
        default: return "";
    }
}

}  // namespace Brantel::Tracks
