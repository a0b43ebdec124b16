#include "Verbs/GapsVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "Playing/GapFinder.h"
#include "Playing/TrackRange.h"
#include "Progress.h"
#include "Table.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

using Time::TimePoint;

struct GapsOptions {
    std::int64_t track = 0;
    std::string range;
    std::string shortest = "1ns";
};

void Print(Context& context, const std::vector<GapFinder::Gap>& gaps) {
    if (context.Style().json) {
        for (const GapFinder::Gap& gap : gaps) {
            JsonObject line;
            context.AddTime(line, "from", gap.from);
            context.AddTime(line, "to", gap.to);
            line.Add("nanoseconds", std::int64_t{(gap.to - gap.from).ToNanoseconds()});
            context.Out().Line(line.Print());
        }
        return;
    }
    if (gaps.empty()) {
        return;
    }
    Table table({{"FROM"}, {"TO"}, {"DURATION", Table::Align::Right}});
    for (const GapFinder::Gap& gap : gaps) {
        table.AddRow({context.TimeOf(gap.from), context.TimeOf(gap.to),
                      DurationText::Print((gap.to - gap.from).ToNanoseconds())});
    }
    context.Out().Write(table.Print(context.Style().colorsOutput));
}

int Gaps(Context& context, const GapsOptions& options) {
    const TimePoint shortest = TimePoint::Nanoseconds(DurationText::Parse(options.shortest));
    const TrackRange range = TrackRange::Resolve(context, options.track, options.range);
    std::vector<GapFinder::Gap> gaps;
    GapFinder::Sums sums;
    {
        Progress progress(context, "Looking for gaps", Progress::Unit::Chunks, 0);
        sums = GapFinder(context, options.track, range)
                   .Run(
                       shortest, [&](const GapFinder::Gap& gap) { gaps.push_back(gap); },
                       [&](std::int64_t chunks) { progress.Update(chunks); });
    }
    Print(context, gaps);
    context.Note("Track " + std::to_string(options.track) + ": " + std::to_string(sums.gaps) +
                 " gaps among " + std::to_string(sums.chunks) + " chunks, " +
                 DurationText::Round(sums.missing) + " of " + DurationText::Round(sums.span) +
                 " missing");
    return ExitCodes::done;
}

}  // namespace

void DeclareGaps(VerbList& verbs) {
    const auto options = std::make_shared<GapsOptions>();
    CLI::App& verb = verbs.Add("gaps", "Lists the stretches of a track that no chunk covers",
                               [options](Context& context) { return Gaps(context, *options); });
    Arguments::AddTrack(verb, options->track);
    verb.add_option("RANGE", options->range, "Which part. Default: all of it");
    verb.add_option("--min", options->shortest, "Only gaps at least so long")
        ->type_name("DURATION")
        ->capture_default_str();
    VerbList::AddExample(verb, "brantel gaps 7 --min 1s", "where a camera was away");
}

}  // namespace Brantel::Tool
