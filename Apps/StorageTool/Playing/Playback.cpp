#include "Playing/Playback.h"

#include "ExitCodes.h"
#include "Media/ChunkQueue.h"
#include "Pictures/PreviewPrinter.h"
#include "Playing/ChunkWalk.h"
#include "Progress.h"

#include <libServices/SocketDisconnected.h>

#include <exception>
#include <functional>
#include <thread>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;

namespace {

// Reads on a thread of its own, as far ahead as the queue lets it.
class ReadAhead {
  public:
    ReadAhead(ChunkWalk& walk, ChunkQueue& queue)
        : walk(walk), queue(queue), thread(&ReadAhead::Run, this) {}
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;
    ~ReadAhead() { Stop(); }

    void Stop() {
        queue.Leave();
        if (thread.joinable()) {
            thread.join();
        }
    }

  private:
    void Run() {
        try {
            for (bool taken = true; taken;) {
                ChunkQueue::Item item{queue.Spare(), 0};
                if (!walk.Next(*item.chunk)) {
                    break;
                }
                item.bytes = item.chunk->GetSizeOnFile();
                taken = queue.Push(std::move(item));
            }
            queue.End();
        } catch (const std::exception&) {
            queue.End(std::current_exception());
        }
    }

    ChunkWalk& walk;
    ChunkQueue& queue;
    std::thread thread;
};

// Said as long as it lives.
class LastWords {
  public:
    LastWords(Interrupts& interrupts, std::function<std::string()> words) : interrupts(interrupts) {
        interrupts.SetLastWords(std::move(words));
    }
    LastWords(const LastWords&) = delete;
    LastWords& operator=(const LastWords&) = delete;
    ~LastWords() { interrupts.SetLastWords({}); }

  private:
    Interrupts& interrupts;
};

std::unique_ptr<IChunkPrinter> MakePrinter(Context& context, const PlayOptions& options) {
    if (options.preview) {
        return std::make_unique<PreviewPrinter>(context);
    }
    if (options.folder.empty()) {
        return IChunkPrinter::Make(options.format, context);
    }
    return IChunkPrinter::MakeForFolder(options.format, options.folder, options.overwrite, context);
}

}  // namespace

Playback::Playback(Context& context, const PlayOptions& options)
    : context(context),
      options(options),
      range(TrackRange::Resolve(context, options.track, options.range)),
      printer(MakePrinter(context, options)),
      pace(context.Ends()) {}

void Playback::Run() {
    const LastWords words(context.Ends(),
                          [this] { return std::to_string(chunks) + " chunks were played"; });
    try {
        PlayAll();
    } catch (const OutputBlocked&) {
        throw Interrupted(HowFar() + "; nobody takes what is written");
    } catch (const SocketDisconnected&) {
        Context::Warn(std::to_string(chunks) + " chunks were played, the last one at " +
                      context.TimeOf(last));
        throw;
    }
}

std::string Playback::HowFar() const {
    return "Interrupted after " + std::to_string(chunks) + " chunks, at " + context.TimeOf(last);
}

void Playback::PlayAll() {
    const std::set<std::string> keys(options.keys.begin(), options.keys.end());
    ChunkWalk walk(context, options.track, range, keys, options.reverse);
    {
        ChunkQueue queue(ChunkQueue::Taking::Together);
        ReadAhead readAhead(walk, queue);
        // A bar beside bytes or pictures on the same terminal would spoil both.
        std::unique_ptr<Progress> progress;
        if (!context.Out().IsTerminal() || !options.folder.empty()) {
            progress = std::make_unique<Progress>(context, "Playing", Progress::Unit::Bytes, 0);
        }
        for (ChunkQueue::Item item; queue.Pop(item);) {
            if (context.Ends().Requested()) {
                throw Interrupted(HowFar());
            }
            Play(*item.chunk);
            queue.GiveBack(std::move(item));
            if (progress) {
                progress->Update(printer->Bytes());
            }
        }
        readAhead.Stop();
    }
    context.Out().Flush();
    leftOut += walk.Damaged();
}

void Playback::Play(const DataChunk& chunk) {
    if (!IsTurn(chunk)) {
        return;
    }
    const std::string reason = printer->Print(chunk);
    last = chunk.GetTimePoint();
    ++chunks;
    if (!reason.empty()) {
        --chunks;
        ++leftOut;
        Context::Warn("Left out: the chunk at " + context.TimeOf(last) + ": " + reason);
    }
    if (options.realtime || options.preview) {
        context.Out().Flush();
    }
}

// A preview that is late leaves pictures out; a play in real time is late then.
bool Playback::IsTurn(const DataChunk& chunk) {
    constexpr std::chrono::milliseconds tolerance(100);
    const Time::TimePoint timePoint = chunk.GetTimePoint();
    if (options.preview && context.Out().IsTerminal() && pace.Late(timePoint) > tolerance) {
        return false;
    }
    if (options.realtime || (options.preview && context.Out().IsTerminal())) {
        pace.Wait(timePoint);
    }
    return !context.Ends().Requested();
}

}  // namespace Brantel::Tool
