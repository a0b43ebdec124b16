#include "StatusJson.h"

#include <libTracks/TrackSettings.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <vector>

namespace Brantel::Server {

namespace {

using Json = nlohmann::ordered_json;

double Seconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

double Seconds(std::int64_t nanoseconds) {
    return Seconds(std::chrono::nanoseconds(nanoseconds));
}

// null for what there is not.
Json TimePoint(std::int64_t nanoseconds) {
    return nanoseconds < 0 ? Json() : Json(nanoseconds);
}

const char* NameOf(Tracks::TrackStatus::State state) {
    using State = Tracks::TrackStatus::State;
    switch (state) {
        case State::Creating: return "creating";
        case State::Ready: return "ready";
        case State::Deleting: return "deleting";
        case State::Failed: return "failed";
    }
    return "unknown";
}

const char* NameOf(Tracks::CommandStatus::Kind kind) {
    using Kind = Tracks::CommandStatus::Kind;
    switch (kind) {
        case Kind::Create: return "create";
        case Kind::Grow: return "grow";
        case Kind::Delete: return "delete";
    }
    return "unknown";
}

Json Describe(const Tracks::TrackStatus& track) {
    Json json{
        {"id", track.id},
        {"state", NameOf(track.state)},
        {"capacity_bytes", track.capacity},
        {"used_bytes", track.used},
        {"protected_bytes", track.held},
        {"remaining_bytes", track.capacity - std::min(track.capacity, track.used)},
        {"begin_nanoseconds", TimePoint(track.begin)},
        {"end_nanoseconds", TimePoint(track.end)},
        {"chunks", track.chunks},
        {"protections", track.protections},
        {"durability", Tracks::TrackSettings::DescribeDurability(track.durability)},
        {"retention", track.isLoop ? "loop" : "stop"},
        {"readers", track.readers},
        {"has_writer", track.hasWriter},
        {"appended_chunks", track.appendedChunks},
        {"appended_bytes", track.appendedBytes},
        {"recycled_chunks", track.recycledChunks},
        {"damaged_chunks", track.damagedChunks},
    };
    if (!track.failure.empty()) {
        json["failure"] = track.failure;
    }
    return json;
}

Json Describe(const Tracks::WorkerStatus& worker) {
    return {
        {"id", worker.id},
        {"type", worker.isWriter ? "writer" : "reader"},
        {"track", worker.track},
        {"connection", worker.connection},
        {"client_address", worker.clientIpV4Address},
        {"bytes_per_second", worker.bytesPerSecond},
        {"idle_seconds", Seconds(worker.idle)},
        {"position_nanoseconds", TimePoint(worker.position)},
        {"lag_seconds", worker.lag < 0 ? Json() : Json(Seconds(worker.lag))},
    };
}

Json Describe(const Tracks::CommandStatus& command) {
    constexpr double whole = 100;
    return {
        {"id", command.id},
        {"kind", NameOf(command.kind)},
        {"state", command.isOngoing ? "ongoing" : "queued"},
        {"track", command.track},
        {"capacity_bytes", command.capacity},
        {"percent", command.percent},
        {"percent_per_second", command.percentPerSecond},
        {"bytes_per_second",
         static_cast<double>(command.capacity) * command.percentPerSecond / whole},
    };
}

template <typename Entry>
void AddList(Json& json, const std::string& name, const std::vector<Entry>& entries) {
    Json& list = json[name] = Json::array();
    for (const Entry& entry : entries) {
        if (list.size() == statusListLimit) {
            json[name + "_left_out"] = entries.size() - statusListLimit;
            return;
        }
        list.push_back(Describe(entry));
    }
}

Json DescribeOperations(const OperationMetrics::Picture& operations) {
    Json list = Json::array();
    for (const OperationMetrics::Line& line : operations.lines) {
        list.push_back({
            {"operation", line.operation},
            {"outcome", OperationMetrics::NameOf(line.outcome)},
            {"count", line.nanoseconds.GetTotal()},
            {"seconds", Seconds(static_cast<std::int64_t>(line.nanoseconds.sum))},
        });
    }
    return list;
}

void AddServed(Json& json, const ServedStatus& served) {
    const Services::ServiceListenerCounters& connections = served.connections;
    const Tracks::StorageStatus& storage = served.storage;
    const Engine::EngineCounters& engine = storage.engine;
    json["addresses"] = served.addresses;
    json["connections"] = {
        {"active", connections.active},         {"accepted", connections.accepted},
        {"refused", connections.refused},       {"lost", connections.lostConnections},
        {"failed", connections.failedHandlers}, {"in_flight_bytes", connections.bytesInFlight}};
    Json& limits = json["limits"] = Json::object();
    for (const LimitInForce& limit : served.limits) {
        limits[limit.name] = limit.value;
    }
    Json& refusals = json["refused_by_limit"] = Json::object();
    for (const RefusalCount& refusal : served.refusals) {
        refusals[refusal.limit] = refusal.count;
    }
    json["space"] = {
        {"reserved_bytes", storage.space.reserved},
        {"limit_bytes", storage.space.limit == 0 ? Json() : Json(storage.space.limit)},
        {"remaining_bytes", storage.remainingSpace ? Json(*storage.remainingSpace) : Json()}};
    json["flushes"] = {{"count", engine.flushNanoseconds.GetTotal()},
                       {"seconds", Seconds(static_cast<std::int64_t>(engine.flushNanoseconds.sum))},
                       {"writes", engine.flushedWrites.sum},
                       {"failures", engine.failedFlushes}};
    json["damaged_chunks"] = storage.damagedChunks;
    json["command_counts"] = {{"queued", storage.commandCounts.queued},
                              {"ongoing", storage.commandCounts.ongoing},
                              {"finished", storage.commandCounts.finished},
                              {"canceled", storage.commandCounts.canceled}};
    AddList(json, "tracks", storage.tracks);
    AddList(json, "workers", storage.workers);
    AddList(json, "commands", storage.commands);
}

}  // namespace

std::string StatusJson(const ServerStatus& status) {
    constexpr int indent = 1;
    Json json{
        {"program", "brantel-storaged"},
        {"version", status.version},
        {"state", ServerStatus::NameOf(status.phase)},
        {"uptime_seconds", Seconds(status.uptime)},
        {"process",
         {{"resident_memory_bytes", status.process.residentBytes},
          {"open_descriptors", status.process.openDescriptors},
          {"descriptors_limit", status.process.descriptorLimit},
          {"threads", status.process.threads},
          {"cpu_seconds", status.process.processorSeconds}}},
        {"payload_bytes", {{"in", status.operations.bytesIn}, {"out", status.operations.bytesOut}}},
        {"denied", status.operations.denied},
        {"operations", DescribeOperations(status.operations)},
    };
    if (status.served) {
        AddServed(json, *status.served);
    }
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Brantel::Server
