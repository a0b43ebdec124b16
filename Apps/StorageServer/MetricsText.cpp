#include "MetricsText.h"

#include <prometheus/client_metric.h>
#include <prometheus/metric_family.h>
#include <prometheus/metric_type.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace Brantel::Server {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

constexpr double secondsOfNanosecond = 1e-9;

class Families {
  public:
    // Begins a family; what follows belongs to it.
    Families& Counter(const char* name, const char* help) {
        return Begin(name, help, MetricType::Counter);
    }
    Families& Gauge(const char* name, const char* help) {
        return Begin(name, help, MetricType::Gauge);
    }
    Families& Histogram(const char* name, const char* help) {
        return Begin(name, help, MetricType::Histogram);
    }

    template <typename Number>
    Families& Add(Number value, Labels labels = {}) {
        ClientMetric metric;
        metric.label = std::move(labels);
        MetricFamily& family = list.back();
        (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) =
            static_cast<double>(value);
        family.metric.push_back(std::move(metric));
        return *this;
    }

    // `unit`: what one of the distribution's numbers is in the family's unit.
    template <std::size_t Bounds>
    Families& Add(const Engine::Distribution<Bounds>& values, double unit, Labels labels = {}) {
        ClientMetric metric;
        metric.label = std::move(labels);
        ClientMetric::Histogram& histogram = metric.histogram;
        std::uint64_t count = 0;
        for (std::size_t index = 0; index < Bounds; ++index) {
            count += values.counts[index];
            histogram.bucket.push_back({count, static_cast<double>(values.bounds[index]) * unit});
        }
        count += values.counts[Bounds];
        histogram.bucket.push_back({count, std::numeric_limits<double>::infinity()});
        histogram.sample_count = count;
        histogram.sample_sum = static_cast<double>(values.sum) * unit;
        list.back().metric.push_back(std::move(metric));
        return *this;
    }

    std::string Serialize() const { return prometheus::TextSerializer().Serialize(list); }

  private:
    Families& Begin(const char* name, const char* help, MetricType type) {
        MetricFamily& family = list.emplace_back();
        family.name = name;
        family.help = help;
        family.type = type;
        return *this;
    }

    std::vector<MetricFamily> list;
};

void AddServer(Families& all, const ServerStatus& status) {
    using Phase = ServerStatus::Phase;
    all.Gauge("brantel_build_info", "Always 1; the label is the version")
        .Add(1, {{"version", status.version}});
    all.Gauge("brantel_ready", "1 while clients are served, else 0")
        .Add(status.phase == Phase::Ready ? 1 : 0);
    all.Gauge("brantel_start_time_seconds", "When the server started, in seconds since 1970")
        .Add(std::chrono::duration<double>(status.start.time_since_epoch()).count());
    const ProcessStatus& process = status.process;
    all.Gauge("brantel_process_resident_memory_bytes", "Memory of the process that is in use")
        .Add(process.residentBytes);
    all.Gauge("brantel_process_open_descriptors", "Descriptors that the process has open")
        .Add(process.openDescriptors);
    all.Gauge("brantel_process_descriptors_limit", "Descriptors that the process can have open")
        .Add(process.descriptorLimit);
    all.Gauge("brantel_process_threads", "Threads of the process").Add(process.threads);
    all.Counter("brantel_process_cpu_seconds_total", "Processor time that the process has used")
        .Add(process.processorSeconds);
}

void AddOperations(Families& all, const OperationMetrics::Picture& operations) {
    all.Histogram("brantel_operation_duration_seconds",
                  "Calls of clients, from the parsed request to the answer that is ready");
    for (const OperationMetrics::Line& line : operations.lines) {
        all.Add(line.nanoseconds, secondsOfNanosecond,
                {{"operation", std::string(line.operation)},
                 {"outcome", std::string(OperationMetrics::NameOf(line.outcome))}});
    }
    all.Counter("brantel_payload_bytes_total",
                "Bytes of properties and data blocks that clients appended (in) and read (out)")
        .Add(operations.bytesIn, {{"direction", "in"}})
        .Add(operations.bytesOut, {{"direction", "out"}});
    all.Counter("brantel_operations_denied_total", "Calls that the client's role did not allow")
        .Add(operations.denied);
}

void AddConnections(Families& all, const ServedStatus& served) {
    const Services::ServiceListenerCounters& connections = served.connections;
    all.Gauge("brantel_connections", "Connections that are being served").Add(connections.active);
    all.Gauge("brantel_connections_in_crowd", "Connections that share a thread with others now")
        .Add(connections.inCrowd);
    all.Counter("brantel_connections_accepted_total", "Connections that were served")
        .Add(connections.accepted);
    all.Counter("brantel_connections_refused_total", "Connections that were closed unserved")
        .Add(connections.refused);
    all.Counter("brantel_connections_lost_total", "Connections that broke off")
        .Add(connections.lostConnections);
    all.Counter("brantel_connections_failed_total",
                "Connections that the server ended for a failure of its own")
        .Add(connections.failedHandlers);
    all.Gauge("brantel_in_flight_bytes", "What large messages that are arriving have taken")
        .Add(connections.bytesInFlight);
    all.Counter("brantel_refused_by_limit_total",
                "What limits refused, each named as the option that sets it");
    for (const RefusalCount& refusal : served.refusals) {
        all.Add(refusal.count, {{"limit", refusal.limit}});
    }
}

void AddStorage(Families& all, const Tracks::StorageStatus& storage) {
    using State = Tracks::TrackStatus::State;
    std::map<State, std::uint64_t> tracks;
    for (const Tracks::TrackStatus& track : storage.tracks) {
        ++tracks[track.state];
    }
    all.Gauge("brantel_tracks", "Tracks by state")
        .Add(tracks[State::Ready], {{"state", "ready"}})
        .Add(tracks[State::Creating], {{"state", "creating"}})
        .Add(tracks[State::Deleting], {{"state", "deleting"}})
        .Add(tracks[State::Failed], {{"state", "failed"}});
    const auto writers =
        std::count_if(storage.workers.begin(), storage.workers.end(),
                      [](const Tracks::WorkerStatus& worker) { return worker.isWriter; });
    all.Gauge("brantel_workers", "Open readers and writers by type")
        .Add(static_cast<std::int64_t>(storage.workers.size()) - writers, {{"type", "reader"}})
        .Add(writers, {{"type", "writer"}});
    all.Gauge("brantel_space_reserved_bytes", "Space that is reserved for tracks")
        .Add(storage.space.reserved);
    all.Gauge("brantel_space_remaining_bytes", "The largest capacity that a new track can have");
    if (storage.remainingSpace) {
        all.Add(*storage.remainingSpace);
    }
    const Tracks::CommandCounts& commands = storage.commandCounts;
    all.Gauge("brantel_commands", "Commands that have not ended, by state")
        .Add(commands.queued, {{"state", "queued"}})
        .Add(commands.ongoing, {{"state", "ongoing"}});
    all.Counter("brantel_commands_ended_total", "Commands that have ended, by state")
        .Add(commands.finished, {{"state", "finished"}})
        .Add(commands.canceled, {{"state", "canceled"}});
    all.Counter("brantel_damaged_chunks_total",
                "Different damaged chunks that were found, on all tracks")
        .Add(storage.damagedChunks);
    const Engine::EngineCounters& engine = storage.engine;
    all.Histogram("brantel_flush_duration_seconds", "Flushes of chunks to the medium")
        .Add(engine.flushNanoseconds, secondsOfNanosecond);
    all.Histogram("brantel_flush_group_writes", "Writes that one flush made safe")
        .Add(engine.flushedWrites, 1);
    all.Counter("brantel_flush_failures_total", "Flushes that the medium failed")
        .Add(engine.failedFlushes);
}

// One number of each track.
struct TrackNumber {
    const char* name;
    const char* help;
    MetricType type;
    std::uint64_t (*get)(const Tracks::TrackStatus&);
};

constexpr std::array trackNumbers{
    TrackNumber{"brantel_track_capacity_bytes", "Capacity of the track", MetricType::Gauge,
                [](const Tracks::TrackStatus& track) { return track.capacity; }},
    TrackNumber{"brantel_track_used_bytes", "What its chunks take of the capacity",
                MetricType::Gauge, [](const Tracks::TrackStatus& track) { return track.used; }},
    TrackNumber{"brantel_track_protected_bytes",
                "What protections keep of that from being recycled", MetricType::Gauge,
                [](const Tracks::TrackStatus& track) { return track.held; }},
    TrackNumber{"brantel_track_remaining_bytes", "What can come before the track recycles",
                MetricType::Gauge,
                [](const Tracks::TrackStatus& track) {
                    return track.capacity - std::min(track.capacity, track.used);
                }},
    TrackNumber{"brantel_track_chunks", "Chunks in the track", MetricType::Gauge,
                [](const Tracks::TrackStatus& track) { return track.chunks; }},
    TrackNumber{"brantel_track_protections", "Protections of the track", MetricType::Gauge,
                [](const Tracks::TrackStatus& track) { return track.protections; }},
    TrackNumber{"brantel_track_readers", "Open readers of the track", MetricType::Gauge,
                [](const Tracks::TrackStatus& track) { return track.readers; }},
    TrackNumber{
        "brantel_track_writers", "Open writers of the track, 0 or 1", MetricType::Gauge,
        [](const Tracks::TrackStatus& track) -> std::uint64_t { return track.hasWriter ? 1 : 0; }},
    TrackNumber{"brantel_track_appended_chunks_total", "Chunks that were appended",
                MetricType::Counter,
                [](const Tracks::TrackStatus& track) { return track.appendedChunks; }},
    TrackNumber{"brantel_track_appended_bytes_total", "Payload that was appended",
                MetricType::Counter,
                [](const Tracks::TrackStatus& track) { return track.appendedBytes; }},
    TrackNumber{"brantel_track_recycled_chunks_total", "Chunks that made room for new ones",
                MetricType::Counter,
                [](const Tracks::TrackStatus& track) { return track.recycledChunks; }},
    TrackNumber{"brantel_track_damaged_chunks_total", "Different damaged chunks that were found",
                MetricType::Counter,
                [](const Tracks::TrackStatus& track) { return track.damagedChunks; }},
};

void AddTracks(Families& all, const Tracks::StorageStatus& storage) {
    for (const TrackNumber& number : trackNumbers) {
        if (number.type == MetricType::Counter) {
            all.Counter(number.name, number.help);
        } else {
            all.Gauge(number.name, number.help);
        }
        for (const Tracks::TrackStatus& track : storage.tracks) {
            all.Add(number.get(track), {{"track", std::to_string(track.id)}});
        }
    }
    std::map<std::int64_t, std::int64_t> lags;  // the longest of a track's readers
    for (const Tracks::WorkerStatus& worker : storage.workers) {
        if (!worker.isWriter && worker.lag >= 0) {
            std::int64_t& lag = lags[worker.track];
            lag = std::max(lag, worker.lag);
        }
    }
    all.Gauge("brantel_track_reader_lag_seconds",
              "How far the reader that is furthest behind is from the track's last chunk");
    for (const auto& [track, lag] : lags) {
        all.Add(static_cast<double>(lag) * secondsOfNanosecond, {{"track", std::to_string(track)}});
    }
}

}  // namespace

std::string MetricsText(const ServerStatus& status) {
    Families all;
    AddServer(all, status);
    AddOperations(all, status.operations);
    if (status.served) {
        AddConnections(all, *status.served);
        AddStorage(all, status.served->storage);
        AddTracks(all, status.served->storage);
    }
    return all.Serialize();
}

}  // namespace Brantel::Server
