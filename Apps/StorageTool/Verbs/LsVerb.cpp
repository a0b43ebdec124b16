#include "Verbs/LsVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Terminal.h"
#include "TrackOverview.h"
#include "TrackTable.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <memory>
#include <sstream>
#include <stdexcept>

namespace Brantel::Tool {

namespace {

struct LsOptions {
    std::vector<std::int64_t> tracks;
    bool watch = false;
    std::string interval = "1s";
};

std::vector<TrackOverview> ReadTracks(Context& context, const LsOptions& options) {
    const std::vector<long> wanted(options.tracks.begin(), options.tracks.end());
    std::vector<TrackOverview> tracks = TrackOverview::Read(context, wanted, false);
    for (const long id : wanted) {
        bool isThere = false;
        for (const TrackOverview& track : tracks) {
            isThere = isThere || track.info.trackId == id;
        }
        if (!isThere) {
            throw std::runtime_error("Track " + std::to_string(id) + " does not exist");
        }
    }
    return tracks;
}

void PrintJson(Context& context, const std::vector<TrackOverview>& tracks) {
    for (const TrackOverview& track : tracks) {
        JsonObject object;
        track.AddTo(object, context);
        context.Out().Line(object.Print());
    }
}

void Print(Context& context, const LsOptions& options) {
    const std::vector<TrackOverview> tracks = ReadTracks(context, options);
    if (context.Style().json) {
        PrintJson(context, tracks);
    } else if (tracks.empty()) {
        context.Note("No tracks; make one with: brantel track create SIZE");
    } else {
        context.Out().Write(TrackTable(context, tracks, 0));
    }
}

// Over the last picture: no line is cleared before its new text is there, so nothing flickers.
void PrintOver(Context& context, const LsOptions& options) {
    const Terminal::Size size = Terminal::SizeOf(context.Out().Descriptor());
    const std::vector<TrackOverview> tracks = ReadTracks(context, options);
    std::istringstream table(TrackTable(context, tracks, static_cast<std::size_t>(size.columns)));
    std::string picture = "\x1b[H";
    std::string line;
    for (int row = 1; row < size.rows && std::getline(table, line); ++row) {
        picture += line + "\x1b[0m\x1b[K\n";
    }
    context.Out().Write(picture + "\x1b[J");
    context.Out().Flush();
}

int Watch(Context& context, const LsOptions& options) {
    const std::chrono::nanoseconds interval = Arguments::Interval(options.interval);
    const bool inPlace = context.Out().IsTerminal() && !context.Style().json;
    if (inPlace) {
        context.Out().Write("\x1b[2J");
    }
    do {
        if (inPlace) {
            PrintOver(context, options);
        } else {
            Print(context, options);
            context.Out().Flush();
        }
    } while (context.Ends().Sleep(interval));
    return ExitCodes::done;
}

int Ls(Context& context, const LsOptions& options) {
    if (options.watch) {
        return Watch(context, options);
    }
    Print(context, options);
    return ExitCodes::done;
}

}  // namespace

void DeclareLs(VerbList& verbs) {
    const auto options = std::make_shared<LsOptions>();
    CLI::App& verb =
        verbs.Add("ls", "Lists the tracks: how full they are, what they hold, and who writes",
                  [options](Context& context) { return Ls(context, *options); });
    Arguments::AddTracks(verb, options->tracks, 0)->description("Only these tracks");
    CLI::Option* const watch =
        verb.add_flag("-w,--watch", options->watch, "Keep the list fresh until interrupted");
    Arguments::AddInterval(verb, options->interval)->needs(watch);
    VerbList::AddExample(verb, "brantel ls", "all tracks");
    VerbList::AddExample(verb, "brantel ls -j | jq .track", "the numbers of all tracks");
}

}  // namespace Brantel::Tool
