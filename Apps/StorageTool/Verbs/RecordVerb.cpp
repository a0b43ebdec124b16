#include "Verbs/RecordVerb.h"

#include "Context.h"
#include "DurationText.h"
#include "ExitCodes.h"
#include "Media/ChunkQueue.h"
#include "Progress.h"
#include "Recording/ChunkMaker.h"
#include "Recording/InputFiles.h"
#include "Recording/RecordOptions.h"
#include "Recording/TrackAppender.h"
#include "SizeText.h"
#include "TimeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Brantel::Tool {

namespace {

using Clock = std::chrono::steady_clock;
using Time::TimePoint;

// Reads, splits and fills chunks on a thread of its own, while others are on their way.
class Feeder {
  public:
    Feeder(ChunkMaker& maker, InputFiles& input, ChunkQueue& queue)
        : maker(maker), input(input), queue(queue), thread(&Feeder::Run, this) {}
    Feeder(const Feeder&) = delete;
    Feeder& operator=(const Feeder&) = delete;
    ~Feeder() {
        queue.Leave();
        input.Stop();
        thread.join();
    }

  private:
    void Run() {
        try {
            while (input.Open() && FeedFile()) {
            }
            queue.End();
        } catch (const std::exception&) {
            queue.End(std::current_exception());
        }
    }

    // False when nobody takes the chunks any more.
    bool FeedFile() {
        const std::unique_ptr<ISplitter> splitter = maker.MakeSplitter();
        try {
            for (std::size_t size = Read(*splitter); size != 0; size = Read(*splitter)) {
                if (!TakeAll(*splitter)) {
                    return false;
                }
            }
            if (input.WasStopped()) {
                return false;
            }
            splitter->Finish();
            return TakeAll(*splitter);
        } catch (const std::system_error&) {
            throw;
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(input.Name() + ": " + error.what());
        }
    }

    std::size_t Read(ISplitter& splitter) {
        constexpr std::size_t atOnce = std::size_t{256} << 10U;
        const std::size_t size = input.Read(splitter.Room(atOnce), atOnce);
        splitter.Feed(size);
        return size;
    }

    bool TakeAll(ISplitter& splitter) {
        while (splitter.Take(piece)) {
            ChunkQueue::Item item{queue.Spare(), piece.size()};
            maker.Make(piece, *item.chunk);
            if (!queue.Push(std::move(item))) {
                return false;
            }
        }
        return true;
    }

    ChunkMaker& maker;
    InputFiles& input;
    ChunkQueue& queue;
    std::string piece;
    std::thread thread;
};

std::optional<std::chrono::nanoseconds> RetryFor(const RecordOptions& options) {
    if (options.retryFor.empty()) {
        return options.retry ? std::optional<std::chrono::nanoseconds>(0) : std::nullopt;
    }
    const std::chrono::nanoseconds limit(DurationText::Parse(options.retryFor));
    if (limit.count() <= 0) {
        throw Misuse("--retry-for takes a duration above 0: " + options.retryFor);
    }
    return limit;
}

// Now, or where the track ends when that lies later, unless a start was asked for.
TimePoint FindStart(Context& context, const RecordOptions& options) {
    const TimeBounds bounds = context.BoundsOf(options.track);
    const TimePoint start = options.start.empty() || options.start == "now"
                                ? bounds.now
                                : TimeText::Parse(options.start).Resolve(bounds);
    if (start < TimePoint()) {
        throw Misuse("A recording can't start before 0: " + options.start);
    }
    const bool chosen = !options.start.empty();
    const TimePoint result = chosen ? start : std::max(start, bounds.end);
    context.Note("Track " + std::to_string(options.track) + ": from " + context.TimeOf(result) +
                 (result == start ? "" : ", where it ends so far"));
    return result;
}

std::string Summary(const Context& context, std::int64_t track, const TrackAppender::Sums& sums,
                    Clock::duration elapsed) {
    const double seconds = std::chrono::duration<double>(elapsed).count();
    std::string text = "Track " + std::to_string(track) + ": " + std::to_string(sums.chunks) +
                       " chunks, " + SizeText::Print(sums.bytes) + " stored";
    if (sums.chunks > 0) {
        text += ", from " + context.TimeOf(sums.first) + " to " + context.TimeOf(sums.end);
    }
    if (seconds > 0) {
        text += ", " + SizeText::PrintRate(static_cast<double>(sums.bytes) / seconds);
    }
    if (sums.reconnects > 0) {
        text += "; connected again " + std::to_string(sums.reconnects) + " times";
    }
    return text;
}

void Report(Context& context, std::int64_t track, const TrackAppender::Sums& sums,
            Clock::duration elapsed) {
    context.Note(Summary(context, track, sums, elapsed));
    if (context.Style().json) {
        JsonObject line;
        line.Add("track", track).Add("chunks", sums.chunks).Add("bytes", sums.bytes);
        context.AddTime(line, "from", sums.first);
        context.AddTime(line, "to", sums.end);
        line.Add("reconnects", sums.reconnects);
        context.Out().Line(line.Print());
    }
}

void AppendAll(Context& context, TrackAppender& appender, ChunkQueue& queue, Progress& progress) {
    // The last words are said by another thread, when this one is stuck.
    const auto stored = std::make_shared<std::atomic<std::int64_t>>(0);
    context.Ends().SetLastWords(
        [stored] { return std::to_string(*stored) + " chunks were stored"; });
    for (ChunkQueue::Item item; queue.Pop(item);) {
        appender.Append(*item.chunk, item.bytes);
        ++*stored;
        queue.GiveBack(std::move(item));
        progress.Update(appender.Stored().bytes);
    }
}

int Record(Context& context, const RecordOptions& options) {
    ChunkMaker maker(options);
    const auto retryFor = RetryFor(options);
    InputFiles input(options.files, context.Ends().Descriptor());
    if (maker.NeedsStart()) {
        maker.SetStart(FindStart(context, options));
    }
    TrackAppender appender(context, options.track, retryFor);
    const Clock::time_point begin = Clock::now();
    std::exception_ptr failure;
    {
        ChunkQueue queue(ChunkQueue::Taking::AtOnce);
        Progress progress(context, "Recording", Progress::Unit::Bytes,
                          static_cast<std::int64_t>(InputFiles::TotalSize(options.files)));
        const Feeder feeder(maker, input, queue);
        try {
            AppendAll(context, appender, queue, progress);
        } catch (const std::runtime_error&) {
            failure = std::current_exception();
        }
        context.Ends().SetLastWords({});
    }
    Report(context, options.track, appender.Stored(), Clock::now() - begin);
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (context.Ends().Requested()) {
        context.Note("Interrupted: what had come until then is stored");
    }
    return appender.Stored().lostAnswered ? ExitCodes::lossy : ExitCodes::done;
}

void DeclareOptions(CLI::App& verb, RecordOptions& options) {
    Arguments::AddTrack(verb, options.track);
    verb.add_option("FILE", options.files, "Files, or - for the standard input, the default");
    verb.add_option("--format", options.format,
                    "What the input is: mjpeg: JPEG pictures, one after the other; raw: bytes; "
                    "lines: a chunk for each; record: chunk records")
        ->type_name("FORMAT")
        ->required()
        ->check(CLI::IsMember({"mjpeg", "raw", "lines", "record"}));
    verb.add_option("--fps", options.fps, "mjpeg: pictures a second, as 25, 29.97 or 30000/1001")
        ->type_name("RATE")
        ->default_str("25");
    verb.add_option("--rate", options.rate,
                    "raw, lines: chunks a second, or of raw bytes as 8Mbit/s or 192kB/s; without "
                    "it, the time point of a chunk is when it came")
        ->type_name("RATE");
    verb.add_option("--chunk-size", options.chunkSize, "raw: the size of a chunk")
        ->type_name("SIZE")
        ->default_str("64KiB");
    verb.add_option("--time-field", options.timeField,
                    "lines: which field of a line is its time: a number from 1 for the fields "
                    "between blanks, or the name of a member of a JSON object")
        ->type_name("FIELD");
    verb.add_option("--duration", options.duration, "lines, raw without a rate: of each chunk")
        ->type_name("DURATION")
        ->default_str("0s");
    verb.add_option("--start", options.start,
                    "With a rate: time point of the first chunk. Default: now, or where the track "
                    "ends when that lies later")
        ->type_name("TIME");
    verb.add_option("--key", options.key,
                    "Key of the data block. Default: image for mjpeg, otherwise data")
        ->type_name("KEY");
    verb.add_option("-p,--property", options.properties, "A property of each chunk; repeatable")
        ->type_name("KEY=VALUE")
        ->take_all()
        ->allow_extra_args(false);
    verb.add_flag("--retry", options.retry,
                  "Connect again when the connection is lost, and go on where the track ends");
    verb.add_option("--retry-for", options.retryFor, "The same, but not longer than this at a time")
        ->type_name("DURATION");
}

}  // namespace

void DeclareRecord(VerbList& verbs) {
    const auto options = std::make_shared<RecordOptions>();
    CLI::App& verb =
        verbs.Add("record", "Appends chunks from files or the standard input to a track",
                  [options](Context& context) { return Record(context, *options); });
    DeclareOptions(verb, *options);
    VerbList::AddExample(verb, "brantel record 7 --format mjpeg --fps 25 pictures.mjpeg",
                         "records a film from now on");
    VerbList::AddExample(
        verb, "ffmpeg -i CAMERA -c copy -f mjpeg - | brantel record 7 --format mjpeg --retry",
        "records a camera, also when the server is restarted meanwhile");
    VerbList::AddExample(verb, "brantel record 8 --format lines --time-field time events.json",
                         "a chunk for each line, at the time that its member says");
}

}  // namespace Brantel::Tool
