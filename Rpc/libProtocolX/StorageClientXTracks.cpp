// The operations on tracks: each converts its arguments, asks the stub once, and converts the
// answer.
#include "Converter.h"
#include "StorageClientX.h"
#include "rpc/Client.h"

#include <CommonMessages.pb.h>

#include <algorithm>
#include <stdexcept>

namespace Brantel::ProtocolX {
namespace {

using Time::TimePoint;

Protocol::TimePoint Message(const TimePoint& timePoint) {
    Protocol::TimePoint message;
    Converter::To(timePoint, message);
    return message;
}

Protocol::TrackParameters Message(const StorageClientX::TrackParameters& parameters) {
    Protocol::TrackParameters message;
    message.set_id(static_cast<std::uint64_t>(parameters.id));
    message.set_size(static_cast<std::uint64_t>(parameters.size));
    return message;
}

Protocol::Ids Message(const std::vector<long>& ids) {
    Protocol::Ids message;
    message.mutable_ids()->Add(ids.begin(), ids.end());
    return message;
}

StorageClientX::TrackParameters From(const Protocol::TrackParameters& message) {
    return {static_cast<long>(message.id()), static_cast<long>(message.size()),
            static_cast<long>(message.commandid())};
}

StorageClientX::ProtectionInfos From(const Protocol::ProtectionInfo& message) {
    return {static_cast<long>(message.handle()), static_cast<long>(message.trackid()),
            Converter::From(message.tcin()), Converter::From(message.tcout())};
}

StorageClientX::WorkerType From(Protocol::WorkerInfo::Type type) {
    if (type == Protocol::WorkerInfo::WRITER) {
        return StorageClientX::WRITER;
    }
    return type == Protocol::WorkerInfo::READER ? StorageClientX::READER : StorageClientX::NONE;
}

StorageClientX::WorkerInfo From(const Protocol::WorkerInfo& message) {
    StorageClientX::WorkerInfo info;
    info.type = From(message.type());
    info.workerId = static_cast<long>(message.workerid());
    info.connectionId = static_cast<long>(message.connectionid());
    info.throughput = static_cast<long>(message.throughput());
    info.trackId = static_cast<long>(message.trackid());
    info.clientIpV4Address = message.clientipv4address();
    return info;
}

StorageClientX::CommandType From(Protocol::CommandInfo::Type type) {
    switch (type) {
        case Protocol::CommandInfo::FINISHED: return StorageClientX::FINISHED;
        case Protocol::CommandInfo::CANCELED: return StorageClientX::CANCELED;
        case Protocol::CommandInfo::QUEUED: return StorageClientX::QUEUED;
        case Protocol::CommandInfo::ONGOING: return StorageClientX::ONGOING;
        default: return StorageClientX::NOT_EXIST;
    }
}

StorageClientX::CommandInfo From(const Protocol::CommandInfo& message) {
    return {From(message.type()), static_cast<long>(message.progression())};
}

StorageClientX::TrackInfo From(const Protocol::TrackInfo& message) {
    return {static_cast<long>(message.trackid()), Converter::From(message.tpin()),
            Converter::From(message.tpout()), static_cast<long>(message.size()),
            static_cast<long>(message.capacity())};
}

std::vector<long> Numbers(const google::protobuf::RepeatedField<std::uint64_t>& ids) {
    return {ids.begin(), ids.end()};
}

template <typename Record, typename Items>
std::vector<Record> Records(const Items& items) {
    std::vector<Record> records;
    records.reserve(static_cast<std::size_t>(items.size()));
    for (const auto& item : items) {
        records.push_back(From(item));
    }
    return records;
}

}  // namespace

StorageClientX::TrackParameters StorageClientX::CreateTrack(const TrackParameters& parameters) {
    Protocol::TrackParameters answer;
    if (client != nullptr) {
        client->GetTrackStorage().CreateTrack(Message(parameters), answer);
    }
    return From(answer);
}

StorageClientX::TrackParameters StorageClientX::GrowTrack(const TrackParameters& parameters) {
    Protocol::TrackParameters answer;
    if (client != nullptr) {
        client->GetTrackStorage().GrowTrack(Message(parameters), answer);
    }
    return From(answer);
}

StorageClientX::TrackParameters StorageClientX::DeleteTrack(long trackId) {
    Protocol::TrackParameters answer;
    if (client != nullptr) {
        client->GetTrackStorage().DeleteTrack(trackId, answer);
    }
    return From(answer);
}

void StorageClientX::ClearTrack(long trackId) {
    if (client != nullptr) {
        client->GetTrackStorage().ClearTrack(trackId);
    }
}

long StorageClientX::GetTrackSize(long trackId) {
    if (client == nullptr) {
        return -1;
    }
    long size = 0;
    client->GetTrackStorage().GetTrackSize(trackId, size);
    return size;
}

long StorageClientX::GetRemainingSpace() {
    long space = -1;
    if (client != nullptr) {
        client->GetTrackStorage().GetRemainingSpace(space);
    }
    return space;
}

std::vector<long> StorageClientX::ListTracks() {
    Protocol::TrackList list;
    if (client != nullptr) {
        client->GetTrackStorage().ListTracks(list);
    }
    return Numbers(list.trackids());
}

long StorageClientX::TracksCreated(const std::vector<long>& trackIds) {
    const std::vector<long> listed = ListTracks();
    for (const long trackId : trackIds) {
        if (std::find(listed.begin(), listed.end(), trackId) == listed.end()) {
            return trackId;
        }
    }
    return 0;
}

std::vector<StorageClientX::ProtectionInfos> StorageClientX::ListProtections() {
    Protocol::ProtectionInfos answer;
    if (client != nullptr) {
        client->GetTrackStorage().ListProtections(answer);
    }
    return Records<ProtectionInfos>(answer.infos());
}

TimePoint StorageClientX::GetBeginningOfTrack(long trackId) {
    if (client == nullptr) {
        return TimePoint::Nanoseconds(-1);
    }
    Protocol::TimePoint answer;
    client->GetTrackStorage().GetBeginningOfTrack(trackId, answer);
    return Converter::From(answer);
}

TimePoint StorageClientX::GetEndOfTrack(long trackId) {
    if (client == nullptr) {
        return TimePoint::Nanoseconds(-1);
    }
    Protocol::TimePoint answer;
    client->GetTrackStorage().GetEndOfTrack(trackId, answer);
    return Converter::From(answer);
}

TimePoint StorageClientX::GetHighestTimePoint(const std::vector<long>& trackIds) {
    TimePoint highest;
    for (const long trackId : trackIds) {
        const TimePoint end = GetEndOfTrack(trackId);
        if (end > highest) {
            highest = end;
        }
    }
    return highest;
}

long StorageClientX::Protect(long trackId, TimePoint in, TimePoint out) {
    long protectionId = -1;
    if (client != nullptr) {
        client->GetTrackStorage().Protect(trackId, Message(in), Message(out - in), protectionId);
    }
    return protectionId;
}

void StorageClientX::Unprotect(long protectionId) {
    if (client != nullptr) {
        client->GetTrackStorage().Unprotect(protectionId);
    }
}

long StorageClientX::GetNumberOfChunks(const long& trackId, const TimePoint& in,
                                       const TimePoint& out) {
    long number = 0;
    if (client != nullptr) {
        client->GetTrackStorage().GetNumberOfChunks(trackId, Message(in), Message(out), number);
    }
    return number;
}

TimePoint StorageClientX::GetAccumulatedDuration(const long& trackId, const TimePoint& in,
                                                 const TimePoint& out) {
    Protocol::TimePoint duration;
    if (client != nullptr) {
        client->GetTrackStorage().GetAccumulatedDuration(trackId, Message(in), Message(out),
                                                         duration);
    }
    return Converter::From(duration);
}

void StorageClientX::SetTrackProperties(long trackId, const Properties& properties) {
    if (client == nullptr) {
        return;
    }
    Protocol::PropertyList list;
    for (const auto& [key, value] : properties) {
        if (key.empty()) {
            throw std::runtime_error(
                "You cannot set an empty key for SetTrackProperties on track " +
                std::to_string(trackId) + ". For info, the value associated is: " + value);
        }
        Protocol::PropertyList::Item& item = *list.add_items();
        item.set_key(key);
        item.set_value(value);
    }
    client->GetTrackStorage().SetTrackProperties(trackId, list);
}

StorageClientX::Properties StorageClientX::GetTrackProperties(long trackId) {
    Protocol::PropertyList list;
    if (client != nullptr) {
        client->GetTrackStorage().GetTrackProperties(trackId, list);
    }
    Properties properties;
    for (const Protocol::PropertyList::Item& item : list.items()) {
        properties[item.key()] = item.value();
    }
    return properties;
}

void StorageClientX::RemoveTrackProperties(long trackId, const Properties& properties) {
    if (client == nullptr) {
        return;
    }
    Protocol::PropertyList list;
    for (const auto& [key, value] : properties) {
        if (key.empty()) {
            throw std::runtime_error(
                "You cannot set an empty key for RemoveTrackProperties on track " +
                std::to_string(trackId));
        }
        Protocol::PropertyList::Item& item = *list.add_items();
        item.set_key(key);
        item.set_value("");
    }
    client->GetTrackStorage().RemoveTrackProperties(trackId, list);
}

std::vector<long> StorageClientX::GetOngoingCommands() {
    Protocol::Ids ids;
    if (client != nullptr) {
        client->GetTrackStorage().GetOngoingCommands(ids);
    }
    return Numbers(ids.ids());
}

StorageClientX::CommandInfo StorageClientX::GetCommandInfo(long commandId) {
    Protocol::CommandInfo answer;
    if (client != nullptr) {
        client->GetTrackStorage().GetCommandInfo(commandId, answer);
    }
    return From(answer);
}

std::vector<std::pair<long, long>> StorageClientX::GetWorkerIds() {
    Protocol::Ids workerIds;
    Protocol::Ids trackIds;
    if (client != nullptr) {
        client->GetTrackStorage().GetActiveWorkers(workerIds, trackIds);
    }
    const int count = std::min(workerIds.ids_size(), trackIds.ids_size());
    std::vector<std::pair<long, long>> workers;
    workers.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        workers.emplace_back(workerIds.ids(index), trackIds.ids(index));
    }
    return workers;
}

std::vector<StorageClientX::WorkerInfo> StorageClientX::GetWorkerInfos(
    const std::vector<long>& workerIds) {
    Protocol::WorkerInfos answer;
    if (client != nullptr) {
        client->GetTrackStorage().GetWorkerInfos(Message(workerIds), answer);
    }
    return Records<WorkerInfo>(answer.infos());
}

std::vector<StorageClientX::TrackInfo> StorageClientX::GetTrackInfos(
    const std::vector<long>& trackIds) {
    Protocol::TrackInfos answer;
    if (client != nullptr) {
        client->GetTrackStorage().GetTrackInfos(Message(trackIds), answer);
    }
    return Records<TrackInfo>(answer.infos());
}

}  // namespace Brantel::ProtocolX
