#include "Verbs/ExportVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Export/DataFile.h"
#include "Export/ExportReader.h"
#include "Export/ExportWriter.h"
#include "Playing/ChunkWalk.h"
#include "Playing/TrackRange.h"
#include "Progress.h"
#include "SizeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/SocketDisconnected.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

struct ExportOptions {
    std::int64_t track = 0;
    std::vector<std::string> rangeAndFile;
    bool sinceLast = false;
    bool overwrite = false;

    const std::string& File() const { return rangeAndFile.back(); }
    std::string Range() const { return rangeAndFile.size() > 1 ? rangeAndFile.front() : ""; }
};

ExportFormat::Header HeaderOf(Context& context, std::int64_t track) {
    ExportFormat::Header header;
    header.track = track;
    context.Ask([&](StorageClientX& client) {
        header.capacity = client.GetTrackSize(track);
        header.properties = client.GetTrackProperties(track);
    });
    return header;
}

// One export of a track into one file.
class Export {
  public:
    Export(Context& context, const ExportOptions& options)
        : context(context),
          options(options),
          path(options.overwrite ? options.File() + ".new" : options.File()),
          range(TrackRange::Resolve(context, options.track, options.Range())),
          // The analyzer does not follow what is made in place.
          // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.UninitializedObject)
          writer(OpenWriter()) {}

    int Run() {
        try {
            CopyChunks();
        } catch (const SocketDisconnected&) {
            Context::Warn(HowFar());
            throw;
        }
        writer.Finish();
        Verify();
        if (options.overwrite) {
            std::filesystem::rename(path, options.File());
        }
        Report();
        return leftOut == 0 && !mayMiss ? ExitCodes::done : ExitCodes::lossy;
    }

  private:
    ExportWriter OpenWriter() {
        if (options.overwrite) {
            std::filesystem::remove(path);
        }
        if (!std::filesystem::exists(path)) {
            return {path, HeaderOf(context, options.track)};
        }
        if (ExportReader::IsFinished(DataFile::OpenToRead(path)) && !options.sinceLast) {
            throw std::runtime_error(path +
                                     ": is a finished export: --since-last adds what is new, -f "
                                     "replaces it");
        }
        ExportWriter opened = ExportWriter::Continue(path, options.track);
        before = opened.Count();
        if (opened.Last() >= 0) {
            ContinueAfter(TimePoint::Nanoseconds(opened.Last()));
        }
        return opened;
    }

    void ContinueAfter(TimePoint last) {
        context.Note(path + ": goes on after " + context.TimeOf(last));
        if (!range.IsEmpty() && range.in > last && options.Range().empty()) {
            mayMiss = true;
            Context::Warn("Track " + std::to_string(options.track) + " begins at " +
                          context.TimeOf(range.in) +
                          " now: chunks before may have been recycled "
                          "that were never exported");
        }
        range.in = std::max(range.in, last + TimePoint::Nanoseconds(1));
    }

    void CopyChunks() {
        ChunkWalk walk(context, options.track, range, {});
        Progress progress(context, "Exporting", Progress::Unit::Bytes, 0);
        for (DataChunk chunk; walk.Next(chunk);) {
            if (context.Ends().Requested()) {
                throw Interrupted("Interrupted after " + HowFar());
            }
            const std::string reason = writer.Append(chunk);
            if (!reason.empty()) {
                ++leftOut;
                Context::Warn("Left out: the chunk at " + context.TimeOf(chunk.GetTimePoint()) +
                              ": " + reason);
            }
            progress.Update(static_cast<std::int64_t>(writer.Size()));
        }
        leftOut += walk.Damaged();
    }

    // What an export that ends now leaves behind.
    std::string HowFar() {
        const std::string chunks = std::to_string(writer.Count()) + " chunks; ";
        if (options.overwrite) {
            std::filesystem::remove(path);
            return chunks + options.File() + " is as it was";
        }
        writer.WriteOut();
        return chunks + "the same command goes on with " + path;
    }

    // Everything is read again, from the file.
    void Verify() {
        ExportReader reader(DataFile::OpenToRead(path));
        Progress progress(context, "Verifying", Progress::Unit::Bytes,
                          static_cast<std::int64_t>(reader.Size()));
        std::uint64_t count = 0;
        for (DataChunk chunk; reader.Next(chunk); ++count) {
            context.CheckInterrupt("Interrupted: " + path + " is written, but not verified; " +
                                   "brantel check " + path + " does that");
            progress.Update(static_cast<std::int64_t>(reader.Place()));
        }
        if (count != writer.Count()) {
            throw std::runtime_error(path + ": " + std::to_string(count) + " chunks are in it, " +
                                     std::to_string(writer.Count()) + " were written");
        }
    }

    void Report() {
        const auto added = static_cast<std::int64_t>(writer.Count() - before);
        context.Note("Track " + std::to_string(options.track) + ": " + std::to_string(added) +
                     " chunks written to " + options.File() + ", which has " +
                     std::to_string(writer.Count()) + " now, " +
                     SizeText::Print(static_cast<std::int64_t>(writer.Size())) + ", verified" +
                     (leftOut == 0 ? "" : "; " + std::to_string(leftOut) + " left out"));
        if (context.Style().json) {
            JsonObject line;
            line.Add("track", options.track).Add("file", std::string_view(options.File()));
            line.Add("added", added).Add("chunks", static_cast<std::int64_t>(writer.Count()));
            line.Add("bytes", static_cast<std::int64_t>(writer.Size())).Add("leftOut", leftOut);
            context.AddTime(line, "last", TimePoint::Nanoseconds(writer.Last()));
            context.Out().Line(line.Print());
        }
    }

    Context& context;
    const ExportOptions& options;
    const std::string path;
    TrackRange range;
    std::uint64_t before = 0;
    std::int64_t leftOut = 0;
    bool mayMiss = false;
    ExportWriter writer;
};

int RunExport(Context& context, const ExportOptions& options) {
    if (options.sinceLast && options.overwrite) {
        throw Misuse("Either --since-last or -f");
    }
    return Export(context, options).Run();
}

}  // namespace

void DeclareExport(VerbList& verbs) {
    const auto options = std::make_shared<ExportOptions>();
    CLI::App& verb =
        verbs.Add("export", "Writes a track, or a part of one, into a file and verifies it",
                  [options](Context& context) { return RunExport(context, *options); });
    Arguments::AddTrack(verb, options->track);
    verb.add_option("[RANGE] FILE", options->rangeAndFile,
                    "Which part, by default all of it, and the file. One that was interrupted is "
                    "gone on with")
        ->required()
        ->expected(1, 2);
    verb.add_flag("--since-last", options->sinceLast,
                  "Add what was recorded since the file was written");
    verb.add_flag("-f,--force", options->overwrite, "Replace the file, when the new one is whole");
    VerbList::AddExample(verb, "brantel export 7 --since-last camera.brantel",
                         "keeps a file up to date, every night");
}

}  // namespace Brantel::Tool
