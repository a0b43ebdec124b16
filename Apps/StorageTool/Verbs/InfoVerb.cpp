#include "Verbs/InfoVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "SizeText.h"
#include "Table.h"
#include "Terminal.h"
#include "TrackOverview.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <cmath>
#include <memory>
#include <stdexcept>

namespace Brantel::Tool {

namespace {

struct InfoOptions {
    std::vector<std::int64_t> tracks;
};

class Description {
  public:
    explicit Description(Context& context) : context(context) {}

    void Row(const std::string& name, const std::string& value) {
        constexpr std::size_t nameColumns = 13;
        std::string padded = name;
        padded.resize(nameColumns, ' ');
        context.Out().Line("  " + Terminal::Dim(padded, context.Style().colorsOutput) +
                           Terminal::Printable(value));
    }

  private:
    Context& context;
};

std::string Setting(const TrackOverview& track, const std::string& key,
                    const std::string& otherwise) {
    const auto found = track.properties.find(key);
    return found == track.properties.end() ? otherwise : found->second;
}

void PrintSpace(Description& rows, const Context& context, const TrackOverview& track) {
    constexpr std::size_t columns = 20;
    constexpr double hundred = 100;
    rows.Row("used", SizeText::Print(track.info.size) + " of " +
                         SizeText::Print(track.info.capacity) + "  [" +
                         Table::Bar(track.Filling(), columns, context.Style().unicode) + "] " +
                         std::to_string(static_cast<int>(track.Filling() * hundred)) + "%");
    if (track.chunks > 0) {
        rows.Row("chunks", std::to_string(track.chunks) + ", " +
                               SizeText::Print(track.info.size / track.chunks) + " each");
    } else {
        rows.Row("chunks", "none");
    }
    if (track.covered > 0) {
        rows.Row("rate", RateText::Print(track.BitsPerSecond()));
        const double capacity = static_cast<double>(track.covered) / track.Filling();
        constexpr double longest = 9e18;
        if (track.info.size > 0 && capacity < longest) {
            rows.Row("room for",
                     DurationText::Round(static_cast<std::int64_t>(capacity)) + " at this rate");
        }
    }
}

void PrintTime(Description& rows, const Context& context, const TrackOverview& track) {
    if (track.chunks == 0) {
        return;
    }
    rows.Row("from", context.TimeOf(track.info.tpIn));
    rows.Row("to", context.TimeOf(track.info.tpOut));
    rows.Row("duration", DurationText::Print(track.Span()));
    rows.Row("covered", DurationText::Print(track.covered));
    rows.Row("gaps", track.Gaps() > 0 ? DurationText::Print(track.Gaps()) : "none");
}

void PrintWorkers(Description& rows, const TrackOverview& track) {
    const auto describe = [](const TrackOverview::Client::WorkerInfo& worker) {
        const std::string client =
            worker.clientIpV4Address.empty() ? "" : " from " + worker.clientIpV4Address;
        return "worker " + std::to_string(worker.workerId) + client + ", " +
               SizeText::PrintRate(static_cast<double>(worker.throughput));
    };
    rows.Row("writer", track.writer ? describe(*track.writer) : "none");
    for (const auto& reader : track.readers) {
        rows.Row("reader", describe(reader));
    }
}

void PrintText(Context& context, const TrackOverview& track) {
    Description rows(context);
    context.Out().Line(Terminal::Bold("Track " + std::to_string(track.info.trackId),
                                      context.Style().colorsOutput));
    PrintSpace(rows, context, track);
    PrintTime(rows, context, track);
    rows.Row("retention", Setting(track, "storage.retention", "loop"));
    rows.Row("durability", Setting(track, "storage.durability", "as the server's"));
    PrintWorkers(rows, track);
    for (const auto& protection : track.protections) {
        rows.Row("protection", std::to_string(protection.handle) + ": " +
                                   context.TimeOf(protection.tcIn) + ".." +
                                   context.TimeOf(protection.tcOut));
    }
    for (const auto& [key, value] : track.properties) {
        if (!key.starts_with("storage.")) {
            std::string property = key;
            property.append("=").append(value);
            rows.Row("property", property);
        }
    }
}

void PrintJson(Context& context, const TrackOverview& track) {
    JsonObject object;
    track.AddTo(object, context);
    JsonObject properties;
    for (const auto& [key, value] : track.properties) {
        properties.AddBytes(key, value);
    }
    object.Add("properties", properties);
    context.Out().Line(object.Print());
}

int Info(Context& context, const InfoOptions& options) {
    for (const std::int64_t id : options.tracks) {
        const std::vector<TrackOverview> found = TrackOverview::Read(context, {id}, true);
        if (found.empty()) {
            throw std::runtime_error("Track " + std::to_string(id) + " does not exist");
        }
        if (context.Style().json) {
            PrintJson(context, found.front());
        } else {
            PrintText(context, found.front());
        }
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareInfo(VerbList& verbs) {
    const auto options = std::make_shared<InfoOptions>();
    CLI::App& verb =
        verbs.Add("info",
                  "Says all that is known of tracks: space, times, settings, workers, protections, "
                  "properties",
                  [options](Context& context) { return Info(context, *options); });
    Arguments::AddTracks(verb, options->tracks, 1);
    VerbList::AddExample(verb, "brantel info 7", "everything about track 7");
}

}  // namespace Brantel::Tool
