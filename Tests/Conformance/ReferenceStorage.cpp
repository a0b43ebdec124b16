#include "Conformance/ReferenceStorage.h"

#include "Conformance/ReferenceText.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <set>
#include <stdexcept>
#include <utility>

namespace Brantel::Tracks {

using Reference::Behind;
using Reference::highest;
using Reference::KeysAsText;
using Reference::Named;
using Reference::page;
using Reference::Refusal;
using Reference::RoundUp;
using Reference::Text;

// ---- what there is ----

ReferenceStorage::Track& ReferenceStorage::Get(std::int64_t id) {
    const auto found = tracks.find(id);
    if (found == tracks.end()) {
        throw std::runtime_error("Track " + Text(id) + " does not exist");
    }
    return found->second;
}

const ReferenceStorage::Track& ReferenceStorage::Get(std::int64_t id) const {
    const auto found = tracks.find(id);
    if (found == tracks.end()) {
        throw std::runtime_error("Track " + Text(id) + " does not exist");
    }
    return found->second;
}

std::uint64_t ReferenceStorage::SizeOf(const Track& track) {
    std::uint64_t size = 0;
    for (const auto& [time, chunk] : track.chunks) {
        size += chunk.cost;
    }
    return size;
}

std::int64_t ReferenceStorage::BeginningOf(const Track& track) {
    return track.chunks.empty() ? -1 : track.chunks.begin()->first;
}

std::int64_t ReferenceStorage::EndOf(const Track& track) {
    return track.chunks.empty()
               ? -1
               : track.chunks.rbegin()->first + track.chunks.rbegin()->second.duration;
}

bool ReferenceStorage::IsHeld(std::int64_t track, std::int64_t time, std::int64_t duration) const {
    return std::any_of(protections.begin(), protections.end(), [&](const auto& item) {
        const Protection& protection = item.second;
        return protection.track == track &&
               static_cast<std::uint64_t>(protection.time) < Behind(time, duration) &&
               static_cast<std::uint64_t>(time) < Behind(protection.time, protection.duration);
    });
}

// 80 bytes of head, 16 for each part; the first part: version, two counts, and behind lengths of 4
// bytes the properties and the keys of the data; all of it rounded up; 48 bytes in the index.
std::uint64_t ReferenceStorage::CostOf(const Protocol::Chunk& chunk) {
    std::uint64_t bytes = 80 + 16 + 1 + 4 + 4;
    for (const auto& property : chunk.properties().items()) {
        bytes += 4 + property.key().size() + 4 + property.value().size();
    }
    for (const auto& block : chunk.data().items()) {
        bytes += 16 + 4 + block.key().size() + block.value().size();
    }
    return RoundUp(bytes, 8) + 48;
}

std::uint64_t ReferenceStorage::SegmentSizeFor(std::uint64_t capacity) const {
    return std::clamp<std::uint64_t>(RoundUp(capacity / 32, page), options.smallestSegmentBytes,
                                     std::uint64_t{256} << 20U);
}

std::uint64_t ReferenceStorage::Reserved(std::uint64_t capacity, std::uint64_t segmentSize) const {
    const std::uint64_t usable = segmentSize - 2 * page;
    return segmentSize * (RoundUp(capacity, usable) / usable + options.spareSegments);
}

std::uint64_t ReferenceStorage::Available() const {
    std::uint64_t available = limit;
    for (const auto& [id, track] : tracks) {
        available -= Reserved(track.capacity, track.segmentSize);
    }
    return available;
}

// ---- one operation ----

StorageOperation ReferenceStorage::Resolve(const StorageOperation& operation) const {
    StorageOperation resolved = operation;
    const auto which = static_cast<std::size_t>(operation.numbers[0]);
    const auto worker = [&](std::int64_t number) {
        std::vector<std::int64_t> ids;
        for (const auto& list : {readers, writers}) {
            for (const Worker& one : list) {
                ids.push_back(one.id);
            }
        }
        return ids.at(static_cast<std::size_t>(number) % ids.size());
    };
    switch (operation.verb) {
        case Verb::Unprotect: {
            const bool isKnown = which < protections.size();
            const auto found =
                std::next(protections.begin(), static_cast<std::ptrdiff_t>(isKnown ? which : 0));
            resolved.numbers[0] = isKnown ? found->first : lastProtection + 1000;
            resolved.numbers[1] = isKnown ? found->second.track : 0;
            break;
        }
        case Verb::DescribeWorkers:
            resolved.numbers = {worker(operation.numbers[0]), worker(operation.numbers[1])};
            break;
        case Verb::DescribeCommand:
            resolved.numbers[0] = std::max<std::int64_t>(
                -1, lastCommand + 1000 * (which == 30 ? 1 : 0) - operation.numbers[0]);
            break;
        case Verb::Wait: {
            // A wait without a limit is one for what is there.
            const std::int64_t track =
                readers.at(static_cast<std::size_t>(operation.numbers[0])).track;
            const auto found = tracks.find(track);
            const bool isThere = found != tracks.end() && !found->second.chunks.empty() &&
                                 found->second.chunks.rbegin()->first > operation.numbers[1];
            resolved.numbers[2] =
                isThere ? operation.numbers[2] : std::max<std::int64_t>(0, operation.numbers[2]);
            break;
        }
        default: break;
    }
    return resolved;
}

std::string ReferenceStorage::Expect(const StorageOperation& operation, const Answer& given) {
    try {
        return Dispatch(operation, given);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::string ReferenceStorage::Dispatch(const StorageOperation& operation, const Answer& given) {
    const Numbers& numbers = operation.numbers;
    switch (operation.verb) {
        case Verb::Create: return ExpectCreate(numbers[0], numbers[1], given);
        case Verb::Grow: return ExpectGrow(numbers[0], numbers[1], given);
        case Verb::Delete: return ExpectDelete(numbers[0], given);
        case Verb::CutOff: return ExpectCutOff(numbers, given);
        case Verb::Clear: return ExpectClear(numbers[0]);
        case Verb::OpenReader:
        case Verb::CloseReader:
        case Verb::OpenWriter:
        case Verb::CloseWriter:
        case Verb::ReaderTrack:
        case Verb::WriterTrack: return ExpectWorker(operation.verb, numbers, given);
        case Verb::Append: return ExpectAppend(operation);
        case Verb::GetChunk:
        case Verb::NextChunk:
        case Verb::PreviousChunk:
        case Verb::NextTime:
        case Verb::PreviousTime:
        case Verb::Wait: return ExpectRead(operation.verb, numbers);
        case Verb::SetProperties:
        case Verb::RemoveProperties:
        case Verb::GetProperties: return ExpectProperties(operation.verb, numbers);
        case Verb::Protect: return ExpectProtect(numbers, given);
        case Verb::Unprotect: return ExpectUnprotect(numbers[0]);
        case Verb::Inspect: return Inspect(numbers[0]);
        case Verb::Restart:
        case Verb::Crash: EndServer(); return InspectAll();
        case Verb::Beginning:
        case Verb::End:
        case Verb::Size:
        case Verb::Infos: return ExpectLook(operation.verb, numbers);
        case Verb::Count:
        case Verb::Duration: return ExpectSums(operation.verb, numbers);
        default: return ExpectList(operation.verb, numbers, given);
    }
}

// ---- tracks ----

std::string ReferenceStorage::TakeCommand(const Answer& given, const std::string& state) {
    if (given.id <= lastCommand) {
        return "command " + Text(given.id) + " was used before";
    }
    lastCommand = given.id;
    commands[given.id] = state;
    while (commands.size() > options.commandHistory) {
        commands.erase(commands.begin());
    }
    return state;
}

std::string ReferenceStorage::ExpectCreate(std::int64_t id, std::int64_t size,
                                           const Answer& given) {
    if (id < 0) {
        throw Refusal(id, "the identifier of a track is not below 0");
    }
    std::int64_t chosen = id;
    if (id == 0) {
        for (chosen = 1; tracks.contains(chosen);) {
            ++chosen;
        }
    }
    if (tracks.contains(chosen)) {
        throw std::runtime_error("Track " + Text(chosen) + " already exists");
    }
    if (size < 160) {
        throw Refusal(chosen,
                      "size " + Text(size) + " is below that of the smallest chunk, 160 bytes");
    }
    Track track;
    track.capacity = RoundUp(static_cast<std::uint64_t>(size), page);
    track.segmentSize = SegmentSizeFor(track.capacity);
    if (Reserved(track.capacity, track.segmentSize) > Available()) {
        if (const std::string wrong = CheckSpace(given.space); wrong != "space") {
            return wrong;
        }
        throw Refusal(chosen, "size " + Text(size) + " is more than the remaining space, " +
                                  Text(given.space) + " bytes");
    }
    const std::string answer = "track " + Text(chosen) + ' ' + Text(track.capacity) + ' ';
    if (!given.isCanceled) {
        tracks.emplace(chosen, std::move(track));
    }
    return answer + TakeCommand(given, given.isCanceled ? "CANCELED 0" : "FINISHED 100");
}

std::string ReferenceStorage::ExpectGrow(std::int64_t id, std::int64_t size, const Answer& given) {
    Track& track = Get(id);
    if (size < 0 || static_cast<std::uint64_t>(size) < track.capacity) {
        throw Refusal(id, "size " + Text(size) + " is below its capacity, " + Text(track.capacity) +
                              " bytes");
    }
    const std::uint64_t capacity = RoundUp(static_cast<std::uint64_t>(size), page);
    const std::uint64_t more =
        Reserved(capacity, track.segmentSize) - Reserved(track.capacity, track.segmentSize);
    if (more > Available()) {
        throw Refusal(id, "size " + Text(size) + " takes " + Text(more) +
                              " bytes more, the remaining space is " + Text(Available()) +
                              " bytes");
    }
    if (!given.isCanceled) {
        track.capacity = capacity;
    }
    return "track " + Text(id) + ' ' + Text(capacity) + ' ' +
           TakeCommand(given, given.isCanceled ? "CANCELED 0" : "FINISHED 100");
}

std::string ReferenceStorage::ExpectDelete(std::int64_t id, const Answer& given) {
    const Track& track = Get(id);
    const auto held = std::count_if(protections.begin(), protections.end(),
                                    [id](const auto& item) { return item.second.track == id; });
    if (held > 0) {
        throw Refusal(id,
                      "it has " + Text(std::int64_t{held}) + " protections and can't be deleted");
    }
    std::int64_t open = 0;
    for (const auto& list : {readers, writers}) {
        open += std::count_if(list.begin(), list.end(), [id](const Worker& worker) {
            return worker.id != 0 && worker.track == id;
        });
    }
    if (open > 0) {
        throw Refusal(id, "it has " + Text(open) + " open workers and can't be deleted");
    }
    const std::string answer = "track " + Text(id) + ' ' + Text(track.capacity) + ' ';
    tracks.erase(id);
    return answer + TakeCommand(given, "FINISHED 100");
}

// The command is finished or undone when the server is back; a deletion is always finished.
std::string ReferenceStorage::ExpectCutOff(const Numbers& numbers, const Answer& given) {
    std::string text;
    try {
        switch (numbers[0]) {
            case 0: text = ExpectCreate(numbers[1], numbers[2], given); break;
            case 1: text = ExpectGrow(numbers[1], numbers[2], given); break;
            default: text = ExpectDelete(numbers[1], given); break;
        }
        if (given.id != 0) {
            text = text.substr(0, text.find_last_of(' '));
            text = text.substr(0, text.find_last_of(' ') + 1);
        }
    } catch (const std::runtime_error& error) {
        text = std::string(error.what()) + ' ';
    }
    EndServer();
    return text + InspectAll();
}

void ReferenceStorage::EndServer() {
    readers = {};
    writers = {};
    lastWorker = 0;
}

std::string ReferenceStorage::ExpectClear(std::int64_t id) {
    Track& track = Get(id);
    for (auto chunk = track.chunks.begin(); chunk != track.chunks.end();) {
        if (IsHeld(id, chunk->first, chunk->second.duration)) {
            chunk->second.place = Place::Held;
            ++chunk;
        } else {
            chunk = track.chunks.erase(chunk);
        }
    }
    return Infos({id});
}

// ---- writing ----

std::string ReferenceStorage::CheckChunk(std::int64_t id, const Protocol::Chunk& chunk) {
    const auto time = static_cast<std::int64_t>(chunk.timecode().nanoseconds());
    const auto duration = static_cast<std::int64_t>(chunk.duration().nanoseconds());
    if (time < 0) {
        return Named(id, "time point " + Text(time) + " is below 0");
    }
    if (duration < 0) {
        return Named(id, "duration " + Text(duration) + " is below 0");
    }
    if (duration > highest - time) {
        return Named(id, "duration " + Text(duration) + " at time point " + Text(time) +
                             " is over the longest there, " + Text(highest - time));
    }
    const auto check = [id](const auto& items, const std::string& kind) -> std::string {
        std::set<std::string> keys;
        for (int index = 0; index < items.size(); ++index) {
            const std::string& key = items[index].key();
            if (key.empty()) {
                return Named(id,
                             kind + ' ' + std::to_string(index) + " of the chunk has an empty key");
            }
            if (!keys.insert(key).second) {
                return Named(id, kind + " key " + key + " occurs twice in the chunk");
            }
        }
        return "";
    };
    const std::string wrong = check(chunk.properties().items(), "property");
    return wrong.empty() ? check(chunk.data().items(), "data block") : wrong;
}

ReferenceStorage::Room ReferenceStorage::MakeRoom(std::int64_t id, std::uint64_t cost) const {
    const Track& track = Get(id);
    const std::uint64_t used = SizeOf(track);
    Room room;
    if (used + cost <= track.capacity) {
        return room;
    }
    const std::string what = "a chunk of " + Text(cost) + " bytes does not fit, ";
    const std::string capacity = " of " + Text(track.capacity) + " bytes are ";
    const auto retention = track.properties.find("storage.retention");
    if (retention != track.properties.end() && retention->second == "stop") {
        room.error = Named(id, what + Text(used) + capacity + "in use and its retention is stop");
        return room;
    }
    std::uint64_t freed = 0;
    for (const auto& [time, chunk] : track.chunks) {
        if (used - freed + cost <= track.capacity) {
            return room;
        }
        if (IsHeld(id, time, chunk.duration)) {
            room.carried.push_back(time);
        } else {
            room.dropped.push_back(time);
            freed += chunk.cost;
        }
    }
    if (used - freed + cost > track.capacity) {
        room.error = Named(id, what + Text(used - freed) + capacity + "held by protections");
    }
    return room;
}

std::string ReferenceStorage::ExpectAppend(const StorageOperation& operation) {
    Worker& writer = writers.at(static_cast<std::size_t>(operation.numbers[0]));
    if (writer.id == 0) {
        return "closed";
    }
    Track& track = Get(writer.track);
    Chunk chunk;
    chunk.message = ChunkOf(operation);
    if (const std::string wrong = CheckChunk(writer.track, chunk.message); !wrong.empty()) {
        return wrong;
    }
    const auto time = static_cast<std::int64_t>(chunk.message.timecode().nanoseconds());
    if (!track.chunks.empty() && time <= track.chunks.rbegin()->first) {
        return Named(writer.track, "time point " + Text(time) + " is not after the last one, " +
                                       Text(track.chunks.rbegin()->first));
    }
    chunk.duration = static_cast<std::int64_t>(chunk.message.duration().nanoseconds());
    chunk.cost = CostOf(chunk.message);
    const std::uint64_t largest = std::min(track.capacity, track.segmentSize - 2 * page);
    if (chunk.cost > largest) {
        return Named(writer.track, "a chunk of " + Text(chunk.cost) +
                                       " bytes is over the largest that the track takes, " +
                                       Text(largest) + " bytes");
    }
    const Room room = MakeRoom(writer.track, chunk.cost);
    if (!room.error.empty()) {
        return room.error;
    }
    for (const std::int64_t dropped : room.dropped) {
        track.chunks.erase(dropped);
    }
    for (const std::int64_t carried : room.carried) {
        track.chunks.at(carried).place = Place::Held;
    }
    for (const auto& property : chunk.message.properties().items()) {
        writer.payload += property.value().size();
    }
    for (const auto& block : chunk.message.data().items()) {
        writer.payload += block.value().size();
    }
    track.chunks.emplace(time, std::move(chunk));
    return Infos({writer.track});
}

// ---- reading ----

// The last chunk at or before the time point, if it covers it.
const ReferenceStorage::Chunk* ReferenceStorage::FindCovering(const Track& track,
                                                              std::int64_t time) const {
    const Chunk* last = nullptr;
    for (const auto& [begin, chunk] : track.chunks) {
        if (begin <= time) {
            const bool isCovered = static_cast<std::uint64_t>(time) < Behind(begin, chunk.duration);
            last = isCovered ? &chunk : nullptr;
        }
    }
    return last;
}

std::string ReferenceStorage::ExpectRead(Verb verb, const Numbers& numbers) {
    Worker& reader = readers.at(static_cast<std::size_t>(numbers[0]));
    if (reader.id == 0) {
        return "closed";
    }
    const Track& track = Get(reader.track);
    const std::int64_t time = numbers[1];
    const auto next = track.chunks.upper_bound(time);
    const auto behind = track.chunks.lower_bound(time);
    const auto previous = behind == track.chunks.begin() ? track.chunks.end() : std::prev(behind);
    const auto timeOf = [&](auto found) {
        return found == track.chunks.end() ? "unset" : Text(found->first) + " found";
    };
    const auto chunkOf = [&](auto found) {
        return found == track.chunks.end() ? nullptr : &found->second;
    };
    const Chunk* chunk = nullptr;
    switch (verb) {
        case Verb::NextTime: return timeOf(next);
        case Verb::PreviousTime: return timeOf(previous);
        case Verb::Wait: return next == track.chunks.end() ? "not there" : "there";
        case Verb::NextChunk: chunk = chunkOf(next); break;
        case Verb::PreviousChunk: chunk = chunkOf(previous); break;
        default: chunk = FindCovering(track, time); break;
    }
    if (chunk == nullptr) {
        return "none";
    }
    const Protocol::KeyList keys = KeysOf(numbers[2]);
    Protocol::Chunk wanted = chunk->message;
    wanted.clear_data();
    for (const auto& block : chunk->message.data().items()) {
        if (keys.keys().empty() ||
            std::find(keys.keys().begin(), keys.keys().end(), block.key()) != keys.keys().end()) {
            *wanted.mutable_data()->add_items() = block;
            reader.payload += block.value().size();
        }
    }
    for (const auto& property : wanted.properties().items()) {
        reader.payload += property.value().size();
    }
    return Describe(wanted);
}

std::string ReferenceStorage::Infos(const std::vector<std::int64_t>& ids) const {
    std::string text;
    for (const std::int64_t id : ids) {
        const auto found = tracks.find(id);
        if (found != tracks.end()) {
            const Track& track = found->second;
            text += Text(id) + " [" + Text(BeginningOf(track)) + ' ' + Text(EndOf(track)) + ") " +
                    Text(SizeOf(track)) + " of " + Text(track.capacity) + "; ";
        }
    }
    return text;
}

std::string ReferenceStorage::ExpectLook(Verb verb, const Numbers& numbers) {
    switch (verb) {
        case Verb::Beginning: return Text(BeginningOf(Get(numbers[0])));
        case Verb::End: return Text(EndOf(Get(numbers[0])));
        case Verb::Size: return Text(Get(numbers[0]).capacity);
        default: return Infos({numbers[0], numbers[1], numbers[2]});
    }
}

std::string ReferenceStorage::ExpectSums(Verb verb, const Numbers& numbers) {
    std::int64_t count = 0;
    std::uint64_t duration = 0;
    for (const auto& [time, chunk] : Get(numbers[0]).chunks) {
        if (numbers[1] <= time && time < numbers[2]) {
            ++count;
            duration += static_cast<std::uint64_t>(chunk.duration);
        }
    }
    return verb == Verb::Count ? Text(count)
                               : Text(std::min(duration, static_cast<std::uint64_t>(highest)));
}

std::string ReferenceStorage::Inspect(std::int64_t id) const {
    const Track& track = Get(id);
    std::string text = Infos({id});
    std::uint64_t duration = 0;
    std::int64_t count = 0;
    for (const auto& [time, chunk] : track.chunks) {
        text += Describe(chunk.message) + "; ";
        const bool isBefore = time < highest;
        count += isBefore ? 1 : 0;
        duration += isBefore ? static_cast<std::uint64_t>(chunk.duration) : 0;
    }
    for (auto chunk = track.chunks.rbegin(); chunk != track.chunks.rend(); ++chunk) {
        text += chunk->first < highest ? Text(chunk->first) + ' ' : "";
    }
    text += "count " + Text(count) + " duration " +
            Text(std::min(duration, static_cast<std::uint64_t>(highest))) + '\n';
    for (const auto& [key, value] : track.properties) {
        text += key + '=' + value + "; ";
    }
    return text + '\n';
}

std::string ReferenceStorage::InspectAll() const {
    std::string text = KeysAsText(tracks) + '\n';
    text += ListProtections() + "\n\n";
    for (const auto& [id, track] : tracks) {
        text += Inspect(id);
    }
    return text;
}

// ---- where segments are short ----

std::int64_t ReferenceStorage::TrackOf(const StorageOperation& operation) const {
    return operation.verb == Verb::Append
               ? writers.at(static_cast<std::size_t>(operation.numbers[0])).track
               : operation.numbers[1];
}

std::string ReferenceStorage::Adopt(const StorageOperation& operation,
                                    const std::vector<std::int64_t>& times) {
    const std::int64_t id = TrackOf(operation);
    return operation.verb == Verb::Append ? AdoptAppend(id, times) : AdoptUnprotect(id, times);
}

// More was recycled than the capacity asks for: still the oldest that are not held, and no others.
std::string ReferenceStorage::AdoptAppend(std::int64_t id, const std::vector<std::int64_t>& times) {
    Track& track = Get(id);
    const std::set<std::int64_t> left(times.begin(), times.end());
    if (track.chunks.empty() || left.empty() || track.chunks.rbegin()->first != *left.rbegin()) {
        return "the last chunk is not there";
    }
    std::int64_t lastDropped = -1;
    std::int64_t firstLeft = *left.rbegin();
    for (const auto& [time, one] : track.chunks) {
        const bool isHeld = IsHeld(id, time, one.duration);
        if (!left.contains(time)) {
            if (isHeld || firstLeft < time) {
                return "recycled out of turn: " + Text(time);
            }
            lastDropped = time;
        } else if (!isHeld) {
            firstLeft = std::min(firstLeft, time);
        }
    }
    for (auto& [time, one] : track.chunks) {
        if (time < lastDropped) {
            one.place = Place::Held;
        } else if (time < firstLeft && one.place == Place::Ring) {
            one.place = Place::Either;
        }
    }
    std::erase_if(track.chunks, [&](const auto& item) { return !left.contains(item.first); });
    return left.size() == track.chunks.size() ? "" : "chunks that should have been recycled";
}

std::string ReferenceStorage::AdoptUnprotect(std::int64_t id,
                                             const std::vector<std::int64_t>& times) {
    Track& track = Get(id);
    const std::set<std::int64_t> left(times.begin(), times.end());
    for (auto& [time, chunk] : track.chunks) {
        const bool mayGo = chunk.place == Place::Either && !IsHeld(id, time, chunk.duration);
        if (!left.contains(time) && !mayGo) {
            return "lost with the end of a protection: " + Text(time);
        }
        chunk.place = mayGo ? Place::Ring : chunk.place;
    }
    std::erase_if(track.chunks, [&](const auto& item) { return !left.contains(item.first); });
    return left.size() == track.chunks.size() ? "" : "chunks that are not there";
}

}  // namespace Brantel::Tracks
