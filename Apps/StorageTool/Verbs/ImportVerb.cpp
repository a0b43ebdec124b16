#include "Verbs/ImportVerb.h"

#include "CommandWatch.h"
#include "Context.h"
#include "ExitCodes.h"
#include "Export/DataFile.h"
#include "Export/ExportReader.h"
#include "Progress.h"
#include "Recording/TrackAppender.h"
#include "SizeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

struct ImportOptions {
    std::string file;
    std::int64_t track = 0;
    std::string size;
    bool anew = false;
    bool dryRun = false;
};

// What the file holds, when all of it is whole.
struct Content {
    ExportFormat::Header header;
    std::vector<ExportFormat::Entry> entries;
    std::int64_t bytes = 0;
};

Content ReadAll(Context& context, const std::string& path) {
    ExportReader reader(DataFile::OpenToRead(path));
    Progress progress(context, "Verifying", Progress::Unit::Bytes,
                      static_cast<std::int64_t>(reader.Size()));
    Content content;
    for (DataChunk chunk; reader.Next(chunk);) {
        context.CheckInterrupt("Interrupted; nothing was imported");
        progress.Update(static_cast<std::int64_t>(reader.Place()));
        content.bytes += static_cast<std::int64_t>(chunk.GetSizeOnFile());
    }
    content.header = reader.Header();
    content.entries = reader.Entries();
    return content;
}

// 0 when there is none.
std::int64_t ParseSize(const std::string& text) {
    const std::int64_t size = text.empty() ? 0 : SizeText::Parse(text);
    if (!text.empty() && size == 0) {
        throw Misuse("Size " + text + ": a track has at least 1 byte");
    }
    return size;
}

// One import of a file into one track.
class Import {
  public:
    Import(Context& context, const ImportOptions& options)
        : context(context),
          options(options),
          size(ParseSize(options.size)),
          content(ReadAll(context, options.file)) {}

    int Run() {
        const std::int64_t wanted = options.track > 0 ? options.track : content.header.track;
        const bool exists = !options.anew && wanted > 0 && Exists(wanted);
        if (exists && size > 0) {
            throw Misuse("--size is for a track that is made; track " + std::to_string(wanted) +
                         " is there: brantel track grow makes it larger");
        }
        const TimePoint after = exists ? FindEnd(wanted) : TimePoint::Nanoseconds(-1);
        if (options.dryRun) {
            JsonObject fields;
            fields.Add("track", exists ? wanted : options.anew ? 0 : wanted);
            fields.Add("chunks", CountAfter(after));
            context.Would("import " + std::to_string(CountAfter(after)) + " chunks into " +
                              (exists ? "track " + std::to_string(wanted) : "a new track"),
                          fields);
            return ExitCodes::done;
        }
        track = exists ? wanted : Create(options.anew ? 0 : wanted);
        CopyAfter(after);
        return Report();
    }

  private:
    bool Exists(std::int64_t id) {
        return context.Ask([&](StorageClientX& client) {
            const std::vector<long> tracks = client.ListTracks();
            return std::find(tracks.begin(), tracks.end(), id) != tracks.end();
        });
    }

    std::int64_t CountAfter(TimePoint after) const {
        return std::count_if(
            content.entries.begin(), content.entries.end(),
            [&](const auto& entry) { return entry.timePoint > after.ToNanoseconds(); });
    }

    // Where the import begins in a track that is there: behind an earlier import that was cut off,
    // or behind other chunks that all lie before.
    TimePoint FindEnd(std::int64_t id) {
        const TimePoint last = context.Ask([&](StorageClientX& client) {
            const TimePoint found = client.GetTrackReader(id, 0)->LastTimePoint();
            client.CloseTrackReader(id, 0);
            return found;
        });
        const auto isLast = [&](const ExportFormat::Entry& entry) {
            return entry.timePoint == last.ToNanoseconds();
        };
        const bool isOurs = std::any_of(content.entries.begin(), content.entries.end(), isLast);
        const bool liesBefore =
            content.entries.empty() || last.ToNanoseconds() < content.entries.front().timePoint;
        if (!isOurs && !liesBefore) {
            throw std::runtime_error("Track " + std::to_string(id) + " ends at " +
                                     context.TimeOf(last) + ", which is no chunk of " +
                                     options.file +
                                     " but not before it either: nothing was imported; --track or "
                                     "--new chooses another track");
        }
        if (isOurs) {
            context.Note("Track " + std::to_string(id) + " has the chunks up to " +
                         context.TimeOf(last) + " already");
        }
        return last;
    }

    std::int64_t Create(std::int64_t id) {
        StorageClientX::TrackParameters wanted;
        wanted.id = id;
        wanted.size = size > 0 ? size : content.header.capacity;
        const auto made =
            context.Ask([&](StorageClientX& client) { return client.CreateTrack(wanted); });
        CommandWatch(context, "Creating track " + std::to_string(made.id), made.size)
            .Follow(made.commandId);
        if (!content.header.properties.empty()) {
            context.Ask([&](StorageClientX& client) {
                client.SetTrackProperties(made.id, content.header.properties);
            });
        }
        return made.id;
    }

    void CopyAfter(TimePoint after) {
        ExportReader reader(DataFile::OpenToRead(options.file));
        TrackAppender appender(context, track, std::nullopt);
        Progress progress(context, "Importing", Progress::Unit::Bytes,
                          static_cast<std::int64_t>(reader.Size()));
        for (DataChunk chunk; reader.Next(chunk);) {
            context.CheckInterrupt("Interrupted after " + std::to_string(appender.Stored().chunks) +
                                   " chunks; the same command goes on in track " +
                                   std::to_string(track));
            if (chunk.GetTimePoint() > after) {
                appender.Append(chunk, chunk.GetSizeOnFile());
            }
            progress.Update(static_cast<std::int64_t>(reader.Place()));
        }
        imported = appender.Stored();
    }

    int Report() {
        const long id = track;
        std::int64_t lost = 0;
        if (!content.entries.empty()) {
            const TimePoint in = TimePoint::Nanoseconds(content.entries.front().timePoint);
            const TimePoint out = TimePoint::Nanoseconds(content.entries.back().timePoint + 1);
            lost = static_cast<std::int64_t>(content.entries.size()) -
                   context.Ask([&](StorageClientX& client) {
                       return client.GetNumberOfChunks(id, in, out);
                   });
        }
        context.Note("Track " + std::to_string(track) + ": " + std::to_string(imported.chunks) +
                     " chunks, " + SizeText::Print(imported.bytes) + " imported from " +
                     options.file);
        if (lost > 0) {
            Context::Warn("Track " + std::to_string(track) + " is too small: " +
                          std::to_string(lost) + " chunks of the file were recycled for others");
        }
        if (context.Style().json) {
            JsonObject line;
            line.Add("track", track).Add("file", std::string_view(options.file));
            line.Add("chunks", imported.chunks).Add("bytes", imported.bytes).Add("lost", lost);
            context.Out().Line(line.Print());
        }
        return lost > 0 ? ExitCodes::lossy : ExitCodes::done;
    }

    Context& context;
    const ImportOptions& options;
    const std::int64_t size;  // 0: as it was
    const Content content;
    std::int64_t track = 0;
    TrackAppender::Sums imported;
};

int RunImport(Context& context, const ImportOptions& options) {
    if (options.anew && options.track > 0) {
        throw Misuse("Either --track or --new");
    }
    return Import(context, options).Run();
}

}  // namespace

void DeclareImport(VerbList& verbs) {
    const auto options = std::make_shared<ImportOptions>();
    CLI::App& verb =
        verbs.Add("import", "Appends the chunks of an export file to a track, made when missing",
                  [options](Context& context) { return RunImport(context, *options); });
    verb.add_option("FILE", options->file, "The file; all of it is verified first")->required();
    verb.add_option("--track", options->track, "Which track. Default: the one that was exported")
        ->type_name("TRACK")
        ->check(Arguments::Within(1, Arguments::highest));
    verb.add_flag("--new", options->anew, "A new track, whose number the storage chooses");
    verb.add_option("--size", options->size,
                    "Of a track that is made. Default: that of the one that was exported")
        ->type_name("SIZE");
    Arguments::AddDryRun(verb, options->dryRun);
    VerbList::AddExample(verb, "brantel import --new camera.brantel", "a copy beside the original");
}

}  // namespace Brantel::Tool
