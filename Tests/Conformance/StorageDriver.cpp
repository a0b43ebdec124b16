#include "Conformance/StorageDriver.h"

#include "Support/TrackWalk.h"
#include "Support/Waiting.h"

#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Brantel::Tracks {

namespace {

constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

Protocol::TimePoint At(std::int64_t time) {
    Protocol::TimePoint message;
    message.set_nanoseconds(static_cast<std::uint64_t>(time));
    return message;
}

std::string TextOf(const Protocol::TimePoint& time) {
    return time.has_nanoseconds() ? std::to_string(static_cast<std::int64_t>(time.nanoseconds()))
                                  : "unset";
}

template <typename Numbers>
std::string TextOf(const Numbers& numbers) {
    std::string text;
    for (const auto number : numbers) {
        text += ' ' + std::to_string(static_cast<std::int64_t>(number));
    }
    return text;
}

ClientConnection ConnectionOf(std::int64_t slot) {
    ClientConnection connection;
    connection.id = 100 + slot;
    connection.clientIpV4Address = "192.0.2." + std::to_string(slot);
    return connection;
}

std::string TextOf(bool found, const Protocol::Chunk& chunk) {
    if (!found) {
        return chunk.ByteSizeLong() == 0 ? "none" : "none, but a chunk that is not empty";
    }
    return Describe(chunk);
}

}  // namespace

StorageDriver::StorageDriver(std::unique_ptr<Engine::IEngineHarness> givenHarness,
                             const StorageOptions& options)
    : harness(std::move(givenHarness)), options(options) {
    Open();
}

StorageDriver::~StorageDriver() {
    CloseAll();
}

void StorageDriver::Open() {
    tracks = std::make_unique<Storage>(harness->GetEngine(), options);
    storage = tracks->MakeTrackStorage();
}

void StorageDriver::CloseAll() {
    for (std::size_t slot = 0; slot < slotCount; ++slot) {
        readers.at(slot).reset();
        writers.at(slot).reset();
    }
    storage.reset();
    tracks.reset();
}

Answer StorageDriver::CarryOut(const StorageOperation& operation) {
    Answer answer;
    try {
        answer = Run(operation);
    } catch (const std::exception& error) {
        answer.text = error.what();
    }
    if (operation.verb == Verb::Create || operation.verb == Verb::RemainingSpace) {
        answer.space = answer.id == 0 ? GetSpace() : 0;
    }
    return answer;
}

Answer StorageDriver::Run(const StorageOperation& operation) {
    const Verb verb = operation.verb;
    const Numbers& numbers = operation.numbers;
    switch (verb) {
        case Verb::Create:
        case Verb::Grow:
        case Verb::Delete: return RunCommand(verb, numbers);
        case Verb::CutOff: return RunCutOff(numbers);
        case Verb::OpenReader:
        case Verb::CloseReader:
        case Verb::OpenWriter:
        case Verb::CloseWriter:
        case Verb::ReaderTrack:
        case Verb::WriterTrack: return RunWorker(verb, numbers);
        case Verb::Append: return RunAppend(operation);
        case Verb::GetChunk:
        case Verb::NextChunk:
        case Verb::PreviousChunk:
        case Verb::NextTime:
        case Verb::PreviousTime:
        case Verb::Wait: return RunRead(verb, numbers);
        case Verb::Clear: storage->ClearTrack(numbers[0]); return {SizeOf(numbers[0])};
        case Verb::SetProperties:
        case Verb::RemoveProperties:
        case Verb::GetProperties: return {RunProperties(verb, numbers)};
        case Verb::Protect: {
            long id = 0;
            storage->Protect(numbers[0], At(numbers[1]), At(numbers[2]), id);
            return {"protected", id};
        }
        case Verb::Unprotect: storage->Unprotect(numbers[0]); return {SizeOf(numbers[1])};
        case Verb::Inspect: return {Inspect(numbers[0])};
        case Verb::Restart:
            CloseAll();
            harness->Restart();
            Open();
            return {InspectAll()};
        case Verb::Crash:
            harness->Crash();
            CloseAll();
            Open();
            return {InspectAll()};
        case Verb::ListTracks:
        case Verb::ListProtections:
        case Verb::ListWorkers:
        case Verb::DescribeWorkers:
        case Verb::DescribeCommand:
        case Verb::ListOngoing:
        case Verb::RemainingSpace: return {RunList(verb, numbers)};
        default: return {RunLook(verb, numbers)};
    }
}

std::int64_t StorageDriver::GetSpace() {
    long space = 0;
    storage->GetRemainingSpace(space);
    return space;
}

std::string StorageDriver::StateOf(std::int64_t command) {
    Protocol::CommandInfo info;
    storage->GetCommandInfo(command, info);
    return Protocol::CommandInfo::Type_Name(info.type()) + ' ' +
           std::to_string(info.type() == Protocol::CommandInfo::CANCELED ? 0 : info.progression());
}

std::string StorageDriver::Await(std::int64_t command) {
    std::string state;
    const bool hasEnded = Tests::Eventually([&] {
        state = StateOf(command);
        return !state.starts_with("QUEUED") && !state.starts_with("ONGOING");
    });
    return hasEnded ? state : "never ends";
}

// The command's number.
std::int64_t StorageDriver::Ask(Verb verb, std::int64_t track, std::int64_t size,
                                std::string& text) {
    Protocol::TrackParameters in;
    Protocol::TrackParameters out;
    in.set_id(static_cast<std::uint64_t>(track));
    in.set_size(static_cast<std::uint64_t>(size));
    switch (verb) {
        case Verb::Create: storage->CreateTrack(in, out); break;
        case Verb::Grow: storage->GrowTrack(in, out); break;
        default: storage->DeleteTrack(track, out); break;
    }
    text = "track " + std::to_string(out.id()) + ' ' + std::to_string(out.size()) + ' ';
    return static_cast<std::int64_t>(out.commandid());
}

Answer StorageDriver::RunCommand(Verb verb, const Numbers& numbers) {
    Answer answer;
    answer.id = Ask(verb, numbers[0], numbers[1], answer.text);
    answer.text += Await(answer.id);
    return answer;
}

Answer StorageDriver::RunCutOff(const Numbers& numbers) {
    constexpr std::array<Verb, 3> verbs{Verb::Create, Verb::Grow, Verb::Delete};
    Answer answer;
    const std::int64_t space = GetSpace();
    try {
        answer.id = Ask(verbs.at(static_cast<std::size_t>(numbers[0])), numbers[1], numbers[2],
                        answer.text);
    } catch (const std::exception& error) {
        answer.text = error.what();
        answer.text += ' ';
        answer.space = space;
    }
    CloseAll();
    harness->Restart();
    Open();
    if (answer.id != 0) {
        answer.isCanceled = Await(answer.id).starts_with("CANCELED");
    }
    answer.text += InspectAll();
    return answer;
}

std::int64_t StorageDriver::LastWorker() {
    Protocol::Ids workers;
    Protocol::Ids trackIds;
    storage->GetActiveWorkers(workers, trackIds);
    std::int64_t last = 0;
    for (const std::uint64_t id : workers.ids()) {
        last = std::max(last, static_cast<std::int64_t>(id));
    }
    return last;
}

Answer StorageDriver::RunWorker(Verb verb, const Numbers& numbers) {
    const auto slot = static_cast<std::size_t>(numbers[0]);
    auto& reader = readers.at(slot);
    auto& writer = writers.at(slot);
    long track = 0;
    switch (verb) {
        case Verb::OpenReader:
            reader.reset();
            reader.reset(
                tracks->MakeReaderFactory(ConnectionOf(numbers[0]))->CreateTrackReader(numbers[1]));
            return {"open", LastWorker()};
        case Verb::OpenWriter:
            writer.reset();
            writer.reset(
                tracks->MakeWriterFactory(ConnectionOf(numbers[0]))->CreateTrackWriter(numbers[1]));
            return {"open", LastWorker()};
        case Verb::CloseReader: reader.reset(); return {"closed"};
        case Verb::CloseWriter: writer.reset(); return {"closed"};
        case Verb::ReaderTrack:
            if (reader) {
                reader->GetTrackId(track);
            }
            return {std::to_string(track)};
        default:
            if (writer) {
                writer->GetTrackId(track);
            }
            return {std::to_string(track)};
    }
}

std::uint64_t StorageDriver::CountFreeSegments(std::int64_t track) {
    std::uint64_t all = 0;
    for (const Engine::Reservation& reservation : harness->GetEngine().ListReservations()) {
        all = reservation.track == track ? reservation.segmentCount : all;
    }
    return all - harness->GetEngine().ListSegments(track).size();
}

Answer StorageDriver::RunAppend(const StorageOperation& operation) {
    constexpr std::uint64_t enough = 3;
    const auto& writer = writers.at(static_cast<std::size_t>(operation.numbers[0]));
    if (!writer) {
        return {"closed"};
    }
    long track = 0;
    writer->GetTrackId(track);
    Answer answer;
    answer.areSegmentsShort = CountFreeSegments(track) < enough;
    try {
        writer->Append(ChunkOf(operation));
        answer.text = SizeOf(track);
    } catch (const std::exception& error) {
        answer.text = error.what();
    }
    return answer;
}

Answer StorageDriver::RunRead(Verb verb, const Numbers& numbers) {
    const auto& reader = readers.at(static_cast<std::size_t>(numbers[0]));
    if (!reader) {
        return {"closed"};
    }
    const Protocol::TimePoint time = At(numbers[1]);
    Protocol::TimePoint timeFound;
    Protocol::Chunk chunk;
    bool found = false;
    switch (verb) {
        case Verb::GetChunk: reader->GetChunk(time, KeysOf(numbers[2]), chunk, found); break;
        case Verb::NextChunk: reader->GetNextChunk(time, KeysOf(numbers[2]), chunk, found); break;
        case Verb::PreviousChunk:
            reader->GetPreviousChunk(time, KeysOf(numbers[2]), chunk, found);
            break;
        case Verb::NextTime:
            reader->NextTimePoint(time, timeFound, found);
            return {TextOf(timeFound) + (found ? " found" : "")};
        case Verb::PreviousTime:
            reader->PreviousTimePoint(time, timeFound, found);
            return {TextOf(timeFound) + (found ? " found" : "")};
        default:
            reader->Wait(time, static_cast<int>(numbers[2]), found);
            return {found ? "there" : "not there"};
    }
    return {TextOf(found, chunk)};
}

std::string StorageDriver::InfosOf(const std::vector<std::int64_t>& asked) {
    Protocol::Ids ids;
    Protocol::TrackInfos infos;
    for (const std::int64_t track : asked) {
        ids.add_ids(static_cast<std::uint64_t>(track));
    }
    storage->GetTrackInfos(ids, infos);
    std::string text;
    for (const auto& info : infos.infos()) {
        text += std::to_string(info.trackid()) + " [" + TextOf(info.tpin()) + ' ' +
                TextOf(info.tpout()) + ") " + std::to_string(info.size()) + " of " +
                std::to_string(info.capacity()) + "; ";
    }
    return text;
}

std::string StorageDriver::SizeOf(std::int64_t track) {
    return InfosOf({track});
}

std::string StorageDriver::RunLook(Verb verb, const Numbers& numbers) {
    Protocol::TimePoint time;
    long number = 0;
    switch (verb) {
        case Verb::Beginning: storage->GetBeginningOfTrack(numbers[0], time); return TextOf(time);
        case Verb::End: storage->GetEndOfTrack(numbers[0], time); return TextOf(time);
        case Verb::Size: storage->GetTrackSize(numbers[0], number); return std::to_string(number);
        case Verb::Infos: return InfosOf({numbers[0], numbers[1], numbers[2]});
        case Verb::Count:
            storage->GetNumberOfChunks(numbers[0], At(numbers[1]), At(numbers[2]), number);
            return std::to_string(number);
        case Verb::Duration:
            storage->GetAccumulatedDuration(numbers[0], At(numbers[1]), At(numbers[2]), time);
            return TextOf(time);
        default: throw std::logic_error("an operation that the driver does not know");
    }
}

std::string StorageDriver::RunProperties(Verb verb, const Numbers& numbers) {
    Protocol::PropertyList properties;
    if (verb == Verb::GetProperties) {
        storage->GetTrackProperties(numbers[0], properties);
        std::string text;
        for (const auto& item : properties.items()) {
            text += item.key() + '=' + item.value() + "; ";
        }
        return text;
    }
    for (const std::int64_t number : {numbers[1], numbers[2]}) {
        const auto [key, value] = PropertyOf(number);
        auto& item = *properties.add_items();
        item.set_key(key);
        item.set_value(value);
    }
    if (verb == Verb::SetProperties) {
        storage->SetTrackProperties(numbers[0], properties);
    } else {
        storage->RemoveTrackProperties(numbers[0], properties);
    }
    return "done";
}

std::string StorageDriver::RunList(Verb verb, const Numbers& numbers) {
    Protocol::Ids ids;
    Protocol::Ids trackIds;
    std::string text;
    switch (verb) {
        case Verb::ListTracks: {
            Protocol::TrackList list;
            storage->ListTracks(list);
            return TextOf(list.trackids());
        }
        case Verb::ListProtections: {
            Protocol::ProtectionInfos infos;
            storage->ListProtections(infos);
            for (const auto& info : infos.infos()) {
                text += std::to_string(info.handle()) + " of " + std::to_string(info.trackid()) +
                        " [" + TextOf(info.tcin()) + ' ' + TextOf(info.tcout()) + "); ";
            }
            return text;
        }
        case Verb::ListWorkers:
            storage->GetActiveWorkers(ids, trackIds);
            return TextOf(ids.ids()) + " on" + TextOf(trackIds.ids());
        case Verb::DescribeWorkers: {
            Protocol::WorkerInfos infos;
            for (const std::int64_t id : {numbers[0], std::int64_t{999999}, numbers[1]}) {
                ids.add_ids(static_cast<std::uint64_t>(id));
            }
            storage->GetWorkerInfos(ids, infos);
            for (const auto& info : infos.infos()) {
                text += std::to_string(info.workerid()) + ' ' +
                        Protocol::WorkerInfo::Type_Name(info.type()) + ' ' +
                        std::to_string(info.trackid()) + ' ' + std::to_string(info.connectionid()) +
                        ' ' + info.clientipv4address() + ' ' + std::to_string(info.throughput()) +
                        "; ";
            }
            return text;
        }
        case Verb::DescribeCommand: return StateOf(numbers[0]);
        case Verb::ListOngoing: storage->GetOngoingCommands(ids); return TextOf(ids.ids());
        default: return "space";
    }
}

std::vector<std::int64_t> StorageDriver::TimesOf(std::int64_t track) {
    const std::unique_ptr<BrantelStorageApi::ITrackReader> reader(
        tracks->MakeReaderFactory({})->CreateTrackReader(track));
    return Tests::WalkTrack(*reader);
}

std::string StorageDriver::Inspect(std::int64_t track) {
    const std::unique_ptr<BrantelStorageApi::ITrackReader> reader(
        tracks->MakeReaderFactory({})->CreateTrackReader(track));
    std::string text = InfosOf({track});
    Protocol::TimePoint time = At(-1);
    Protocol::Chunk chunk;
    bool found = true;
    for (reader->GetNextChunk(time, {}, chunk, found); found;
         reader->GetNextChunk(time, {}, chunk, found)) {
        text += Describe(chunk) + "; ";
        time = chunk.timecode();
    }
    time = At(highest);
    for (reader->PreviousTimePoint(Protocol::TimePoint(time), time, found); found;
         reader->PreviousTimePoint(Protocol::TimePoint(time), time, found)) {
        text += TextOf(time) + ' ';
    }
    long count = 0;
    storage->GetNumberOfChunks(track, At(-1), At(highest), count);
    storage->GetAccumulatedDuration(track, At(-1), At(highest), time);
    return text + "count " + std::to_string(count) + " duration " + TextOf(time) + '\n' +
           RunProperties(Verb::GetProperties, {track}) + '\n';
}

std::string StorageDriver::InspectAll() {
    std::string text = RunList(Verb::ListTracks, {}) + '\n' + RunList(Verb::ListProtections, {}) +
                       '\n' + RunList(Verb::ListOngoing, {}) + '\n';
    Protocol::TrackList list;
    storage->ListTracks(list);
    for (const std::uint64_t track : list.trackids()) {
        text += Inspect(static_cast<std::int64_t>(track));
    }
    return text;
}

}  // namespace Brantel::Tracks
