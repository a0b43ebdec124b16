#include "Verbs/TailVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "Playing/ChunkWalk.h"
#include "Playing/IChunkPrinter.h"
#include "Playing/TrackRange.h"
#include "TimeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/StorageClientX.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

struct TailOptions {
    std::int64_t track = 0;
    std::int64_t count = 10;
    std::string format = "raw";
    std::string interval = "5ms";
    std::vector<std::string> keys;
    bool follow = false;
    bool stats = false;
};

// How long after its time point a chunk was printed, of those that came while it was followed.
class Delays {
  public:
    void Add(TimePoint timePoint) {
        const TimePoint now = TimeBounds::FromNow({}, {}).now;
        delays.push_back((now - timePoint).ToNanoseconds());
    }
    void Report(const Context& context) {
        if (delays.empty()) {
            context.Note("No chunk came, so no delay was measured");
            return;
        }
        std::sort(delays.begin(), delays.end());
        Context::Warn("From time point to print, of " + std::to_string(delays.size()) +
                      " chunks: median " + At(50) + ", 99 % " + At(99) + ", longest " + At(100));
    }

  private:
    std::string At(std::size_t percent) const {
        constexpr std::size_t all = 100;
        return DurationText::Round(delays[(delays.size() - 1) * percent / all]);
    }

    std::vector<std::int64_t> delays;
};

// The time point of the chunk that so many chunks from the end begins.
TimePoint FindBegin(Context& context, const TailOptions& options) {
    return context.Ask([&](StorageClientX& client) {
        ProtocolX::IStorageReaderX& reader = *client.GetTrackReader(options.track, 0);
        TimePoint begin = reader.LastTimePoint();
        if (options.count == 0) {
            return begin + TimePoint::Nanoseconds(1);
        }
        for (std::int64_t left = options.count - 1; left > 0 && begin > TimePoint(); --left) {
            context.CheckInterrupt();
            const TimePoint before = reader.PreviousTimePoint(begin);
            if (before < TimePoint()) {
                break;
            }
            begin = before;
        }
        return std::max(begin, TimePoint());
    });
}

// Prints what is there; returns how many chunks have no such form.
std::int64_t PrintAll(Context& context, ChunkWalk& walk, IChunkPrinter& printer, Delays* delays) {
    std::int64_t leftOut = 0;
    DataChunk chunk;
    while (!context.Ends().Requested() && walk.Next(chunk)) {
        const std::string reason = printer.Print(chunk);
        context.Out().Flush();
        if (delays != nullptr) {
            delays->Add(chunk.GetTimePoint());
        }
        if (!reason.empty()) {
            ++leftOut;
            Context::Warn("Left out: the chunk at " + context.TimeOf(chunk.GetTimePoint()) + ": " +
                          reason);
        }
    }
    return leftOut;
}

int Tail(Context& context, const TailOptions& options) {
    const std::chrono::nanoseconds interval = Arguments::Interval(options.interval);
    Arguments::RefuseFormatBesideJson(context, options.format);
    if (options.stats && !options.follow) {
        throw Misuse("--stats measures what comes: it goes with -f");
    }
    const TrackRange range{FindBegin(context, options), TimePoint::GetHighestTimePoint()};
    ChunkWalk walk(context, options.track, range,
                   std::set<std::string>(options.keys.begin(), options.keys.end()));
    const auto printer =
        IChunkPrinter::Make(context.Style().json ? "json" : options.format, context);
    std::int64_t leftOut = PrintAll(context, walk, *printer, nullptr);
    Delays delays;
    while (options.follow && context.Ends().Sleep(interval)) {
        leftOut += PrintAll(context, walk, *printer, options.stats ? &delays : nullptr);
    }
    if (options.stats) {
        delays.Report(context);
    }
    return leftOut + walk.Damaged() == 0 ? ExitCodes::done : ExitCodes::lossy;
}

}  // namespace

void DeclareTail(VerbList& verbs) {
    const auto options = std::make_shared<TailOptions>();
    CLI::App& verb = verbs.Add("tail", "Writes the last chunks of a track, and those that come",
                               [options](Context& context) { return Tail(context, *options); });
    constexpr std::int64_t mostChunks = 1'000'000'000;
    Arguments::AddTrack(verb, options->track);
    CLI::Option* const follow = verb.add_flag(
        "-f,--follow", options->follow, "Go on with chunks as they come, until it is interrupted");
    verb.add_option("-n,--count", options->count, "How many of those that are there")
        ->type_name("NUMBER")
        ->check(Arguments::Within(0, mostChunks))
        ->capture_default_str();
    Arguments::AddChunkFormat(verb, options->format, "raw, mjpeg, record or json, as of play");
    Arguments::AddKeys(verb, options->keys);
    verb.add_flag("--stats", options->stats,
                  "At the end, say how long after its time point a chunk was printed; that is the "
                  "delay since it was appended where a recording takes the time of arrival");
    Arguments::AddInterval(verb, options->interval)->needs(follow);
    VerbList::AddExample(verb, "brantel tail -f 8", "the lines of a log as they are recorded");
}

}  // namespace Brantel::Tool
