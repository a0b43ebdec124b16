#include "Verbs/GraphVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "Playing/TrackRange.h"
#include "Terminal.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <libProtocolX/StorageClientX.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tool {

namespace {

using ProtocolX::StorageClientX;
using Time::TimePoint;

struct GraphOptions {
    std::int64_t track = 0;
    std::string range;
    int width = 0;
};

// What lies in one column.
struct Column {
    TimePoint in;
    TimePoint out;
    std::int64_t chunks = 0;
    std::int64_t covered = 0;  // nanoseconds
    bool held = false;

    double Seconds() const {
        constexpr double nanoseconds = 1e9;
        return static_cast<double>((out - in).ToNanoseconds()) / nanoseconds;
    }
    double Rate() const { return static_cast<double>(chunks) / Seconds(); }
    double Part() const {
        const auto span = static_cast<double>((out - in).ToNanoseconds());
        return std::min(1.0, static_cast<double>(covered) / span);
    }
};

// Two exchanges for each column: the server counts, nothing is read.
std::vector<Column> Measure(Context& context, std::int64_t track, const TrackRange& range,
                            int width) {
    const long id = track;
    const std::int64_t span = (range.out - range.in).ToNanoseconds();
    const std::int64_t count = std::min<std::int64_t>(width, span);
    const auto protections =
        context.Ask([](StorageClientX& client) { return client.ListProtections(); });
    std::vector<Column> columns;
    for (std::int64_t i = 0; i < count; ++i) {
        context.CheckInterrupt();
        // Without the product of two large numbers.
        const auto at = [&](std::int64_t index) {
            return range.in +
                   TimePoint::Nanoseconds(span / count * index + span % count * index / count);
        };
        Column column{at(i), at(i + 1)};
        context.Ask([&](StorageClientX& client) {
            column.chunks = client.GetNumberOfChunks(id, column.in, column.out);
            column.covered =
                client.GetAccumulatedDuration(id, column.in, column.out).ToNanoseconds();
        });
        for (const auto& protection : protections) {
            column.held = column.held ||
                          (protection.trackId == track && protection.tcIn < column.out &&
                           std::max(protection.tcOut, protection.tcIn + TimePoint::Nanoseconds(1)) >
                               column.in);
        }
        columns.push_back(column);
    }
    return columns;
}

// One of the characters for a part from 0 to 1; above 0 never the first one.
std::string Level(double part, bool unicode) {
    static const std::array<const char*, 9> blocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    static const std::array<const char*, 9> letters{" ", ".", ":", "-", "=", "+", "*", "%", "#"};
    const double scaled = part * static_cast<double>(blocks.size() - 1);
    const auto level = part > 0 ? std::max<std::size_t>(1, static_cast<std::size_t>(scaled)) : 0;
    return (unicode ? blocks : letters).at(std::min(level, blocks.size() - 1));
}

std::string RateText(double rate) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3g", rate);
    return text.data();
}

void Draw(Context& context, const std::vector<Column>& columns) {
    const bool unicode = context.Style().unicode;
    double highest = 0;
    for (const Column& column : columns) {
        highest = std::max(highest, column.Rate());
    }
    std::string rates = "rate  ";
    std::string covered = "cover ";
    std::string held = "held  ";
    for (const Column& column : columns) {
        rates += Level(highest > 0 ? column.Rate() / highest : 0, unicode);
        covered += Level(column.Part(), unicode);
        held += column.held ? (unicode ? "━" : "=") : " ";
    }
    const std::int64_t step = (columns.front().out - columns.front().in).ToNanoseconds();
    context.Out().Line(context.TimeOf(columns.front().in) + " .. " +
                       context.TimeOf(columns.back().out) + ", each column " +
                       DurationText::Round(step));
    context.Out().Line(rates + "  up to " + RateText(highest) + " chunks/s");
    context.Out().Line(covered + "  full: no gap");
    context.Out().Line(held + "  protected");
}

void PrintJson(Context& context, const std::vector<Column>& columns) {
    for (const Column& column : columns) {
        JsonObject line;
        context.AddTime(line, "from", column.in);
        context.AddTime(line, "to", column.out);
        line.Add("chunks", column.chunks).Add("coveredNanoseconds", column.covered);
        line.Add("protected", column.held);
        context.Out().Line(line.Print());
    }
}

int Graph(Context& context, const GraphOptions& options) {
    // Beside the columns stand a title and the text behind.
    constexpr int beside = 32;
    constexpr int narrowest = 10;
    const TrackRange range = TrackRange::Resolve(context, options.track, options.range);
    if (range.IsEmpty()) {
        context.Note("Track " + std::to_string(options.track) +
                     (options.range.empty() ? " is empty" : ": the range is empty"));
        return ExitCodes::done;
    }
    const int terminal = Terminal::SizeOf(context.Out().Descriptor()).columns;
    const int width = options.width > 0 ? options.width : std::max(narrowest, terminal - beside);
    const std::vector<Column> columns = Measure(context, options.track, range, width);
    if (context.Style().json) {
        PrintJson(context, columns);
    } else {
        Draw(context, columns);
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareGraph(VerbList& verbs) {
    const auto options = std::make_shared<GraphOptions>();
    CLI::App& verb = verbs.Add("graph", "Draws rate, gaps and protections of a track over time",
                               [options](Context& context) { return Graph(context, *options); });
    constexpr int widest = 100'000;
    Arguments::AddTrack(verb, options->track);
    verb.add_option("RANGE", options->range, "Which part. Default: all of it");
    verb.add_option("--width", options->width, "How many columns. Default: what the terminal has")
        ->type_name("COLUMNS")
        ->check(Arguments::Within(1, widest));
    VerbList::AddExample(verb, "brantel graph 7 -24h..", "the last day at a glance");
}

}  // namespace Brantel::Tool
