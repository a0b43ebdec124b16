#include "Verbs/GetVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Export/DataFile.h"
#include "Playing/ChunkForms.h"
#include "TimeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/StorageClientX.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tool {

namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

struct GetOptions {
    std::int64_t track = 0;
    std::string time;
    std::string format = "raw";
    std::string file;
    std::vector<std::string> keys;
    bool next = false;
    bool previous = false;
    bool overwrite = false;
};

bool Find(Context& context, const GetOptions& options, TimePoint time, DataChunk& chunk) {
    const std::set<std::string> keys(options.keys.begin(), options.keys.end());
    return context.Ask([&](StorageClientX& client) {
        ProtocolX::IStorageReaderX& reader = *client.GetTrackReader(options.track, 0);
        if (options.next) {
            return reader.GetNextChunk(chunk, time, keys);
        }
        return options.previous ? reader.GetPreviousChunk(chunk, time, keys)
                                : reader.GetChunk(chunk, time, keys);
    });
}

int Get(Context& context, const GetOptions& options) {
    if (options.next && options.previous) {
        throw Misuse("Either --next or --previous");
    }
    if (options.overwrite && options.file.empty()) {
        throw Misuse("-f overwrites a file: it goes with -o");
    }
    Arguments::RefuseFormatBesideJson(context, options.format);
    const TimePoint time = TimeText::Parse(options.time).Resolve(context.BoundsOf(options.track));
    DataChunk chunk;
    if (!Find(context, options, time, chunk)) {
        const char* const where = options.next ? " after " : options.previous ? " before " : " at ";
        throw std::runtime_error("Track " + std::to_string(options.track) + " has no chunk" +
                                 where + context.TimeOf(time));
    }
    context.Note("Track " + std::to_string(options.track) + ": the chunk at " +
                 context.TimeOf(chunk.GetTimePoint()));
    std::string reason;
    const std::string format = context.Style().json ? "json" : options.format;
    const std::string bytes = ChunkForms::Render(format, chunk, context, reason);
    if (!reason.empty()) {
        throw std::runtime_error("The chunk at " + context.TimeOf(chunk.GetTimePoint()) + ": " +
                                 reason);
    }
    if (options.file.empty()) {
        if (format != "json") {
            context.RefuseOnTerminal(bytes);
        }
        context.Out().Write(bytes);
        return ExitCodes::done;
    }
    if (options.overwrite) {
        std::filesystem::remove(options.file);
    }
    DataFile::Create(options.file).Write(0, bytes);
    return ExitCodes::done;
}

}  // namespace

void DeclareGet(VerbList& verbs) {
    const auto options = std::make_shared<GetOptions>();
    CLI::App& verb = verbs.Add("get", "Writes one chunk: the one that covers a time",
                               [options](Context& context) { return Get(context, *options); });
    Arguments::AddTrack(verb, options->track);
    verb.add_option("TIME", options->time, "When, as now-5s, 12.5 or 2026-05-01T12:00:00Z")
        ->required();
    verb.add_flag("--next", options->next, "The first chunk after that time");
    verb.add_flag("--previous", options->previous, "The last chunk before that time");
    Arguments::AddChunkFormat(verb, options->format, "raw, mjpeg, record or json, as of play");
    Arguments::AddKeys(verb, options->keys);
    verb.add_option("-o,--output", options->file, "A file instead of the standard output")
        ->type_name("FILE");
    verb.add_flag("-f,--force", options->overwrite, "Overwrite that file");
    VerbList::AddExample(verb, "brantel get 7 now-5s -o picture.jpg",
                         "the picture of five seconds ago");
}

}  // namespace Brantel::Tool
