#include "TrackTable.h"

#include "Context.h"
#include "DurationText.h"
#include "SizeText.h"
#include "Table.h"

#include <cmath>

namespace Brantel::Tool {

namespace {

std::string Percent(double part) {
    constexpr double hundred = 100;
    return std::to_string(static_cast<int>(std::floor(part * hundred))) + "%";
}

std::string Writer(const TrackOverview& track) {
    return track.writer ? SizeText::PrintRate(static_cast<double>(track.writer->throughput)) : "-";
}

}  // namespace

std::string TrackTable(const Context& context, const std::vector<TrackOverview>& tracks,
                       std::size_t width) {
    using Align = Table::Align;
    Table table({{"track", Align::Right},
                 {"used", Align::Right},
                 {"capacity", Align::Right},
                 {"full", Align::Left},
                 {"", Align::Right},
                 {"from"},
                 {"to"},
                 {"chunks", Align::Right},
                 {"rate", Align::Right},
                 {"gaps", Align::Right},
                 {"protected", Align::Right},
                 {"writer", Align::Right}});
    constexpr std::size_t barColumns = 8;
    for (const TrackOverview& track : tracks) {
        table.AddRow({std::to_string(track.info.trackId), SizeText::Print(track.info.size),
                      SizeText::Print(track.info.capacity),
                      Table::Bar(track.Filling(), barColumns, context.Style().unicode),
                      Percent(track.Filling()), context.TimeOf(track.info.tpIn),
                      context.TimeOf(track.info.tpOut), std::to_string(track.chunks),
                      track.covered > 0 ? RateText::Print(track.BitsPerSecond()) : "-",
                      track.Gaps() > 0 ? DurationText::Round(track.Gaps()) : "-",
                      track.protections.empty() ? "-" : std::to_string(track.protections.size()),
                      Writer(track)});
    }
    return table.Print(context.Style().colorsOutput, width);
}

}  // namespace Brantel::Tool
