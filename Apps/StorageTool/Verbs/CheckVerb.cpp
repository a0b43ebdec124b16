#include "Verbs/CheckVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Export/DataFile.h"
#include "Export/ExportSalvage.h"
#include "Playing/ChunkWalk.h"
#include "Playing/TrackRange.h"
#include "Progress.h"
#include "SizeText.h"
#include "StorageProgram.h"
#include "VerbList.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <filesystem>
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

struct CheckOptions {
    std::string what;
    std::string program;
};

std::optional<std::int64_t> TrackOf(const std::string& text) {
    std::int64_t track = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, track);
    return error == std::errc() && rest == end && !text.empty() ? std::optional(track)
                                                                : std::nullopt;
}

// What was found, said as it is found.
class Findings {
  public:
    explicit Findings(Context& context) : context(context) {}

    void Add(std::string_view where, const std::string& problem) {
        ++count;
        if (context.Style().json) {
            JsonObject line;
            line.Add("where", where).Add("problem", std::string_view(problem));
            context.Out().Line(line.Print());
        } else {
            context.Out().Line(problem);
        }
    }
    void Conclude(const std::string& what, std::int64_t chunks, std::int64_t bytes) {
        if (context.Style().json) {
            JsonObject line;
            line.Add("checked", std::string_view(what)).Add("chunks", chunks).Add("bytes", bytes);
            line.Add("findings", count);
            context.Out().Line(line.Print());
        } else {
            context.Out().Line(what + ": " + std::to_string(chunks) + " chunks, " +
                               SizeText::Print(bytes) + ": " +
                               (count == 0 ? "all is whole" : std::to_string(count) + " findings"));
        }
    }
    int ExitCode() const { return count == 0 ? ExitCodes::done : ExitCodes::lossy; }

  private:
    Context& context;
    std::int64_t count = 0;
};

std::string WithoutOrigin(const std::string& text) {
    constexpr std::string_view origin = "Exception from server: ";
    return text.starts_with(origin) ? text.substr(origin.size()) : text;
}

// Everything is read: the server compares its checksums then.
int CheckTracks(Context& context, const std::vector<long>& tracks, const std::string& what) {
    Findings findings(context);
    std::int64_t chunks = 0;
    std::int64_t bytes = 0;
    Progress progress(context, "Checking", Progress::Unit::Bytes, 0);
    for (const long track : tracks) {
        ChunkWalk walk(context, track, TrackRange::Resolve(context, track, ""), {});
        walk.SetReport([&](TimePoint timePoint, const std::string& problem) {
            findings.Add("track " + std::to_string(track) + ", " + context.TimeOf(timePoint),
                         WithoutOrigin(problem));
        });
        for (DataChunk chunk; walk.Next(chunk);) {
            context.CheckInterrupt("Interrupted in track " + std::to_string(track) + " at " +
                                   context.TimeOf(chunk.GetTimePoint()));
            ++chunks;
            bytes += static_cast<std::int64_t>(chunk.GetSizeOnFile());
            progress.Update(bytes);
        }
    }
    findings.Conclude(what, chunks, bytes);
    return findings.ExitCode();
}

int CheckFile(Context& context, const std::string& path) {
    Findings findings(context);
    std::int64_t bytes = 0;
    Progress progress(context, "Checking", Progress::Unit::Bytes,
                      static_cast<std::int64_t>(DataFile::OpenToRead(path).Size()));
    const ExportSalvage::Sums sums = ExportSalvage::Run(
        path, {[&](const DataChunk& chunk) {
                   bytes += static_cast<std::int64_t>(chunk.GetSizeOnFile());
                   context.CheckInterrupt("Interrupted in " + path);
               },
               [&](const std::string& problem) { findings.Add(path, problem); },
               [&](std::uint64_t place) { progress.Update(static_cast<std::int64_t>(place)); }});
    findings.Conclude(path, sums.chunks, bytes);
    return findings.ExitCode();
}

int Check(Context& context, const CheckOptions& options) {
    const std::optional<std::int64_t> track = TrackOf(options.what);
    if (options.what.empty()) {
        return CheckTracks(context,
                           context.Ask([](StorageClientX& client) { return client.ListTracks(); }),
                           context.Address().text);
    }
    if (track) {
        return CheckTracks(context, {*track}, "Track " + options.what);
    }
    if (std::filesystem::is_directory(options.what)) {
        return StorageProgram(context, options.program).RunForFolder("check", options.what, {});
    }
    return CheckFile(context, options.what);
}

}  // namespace

void DeclareCheck(VerbList& verbs) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& verb = verbs.Add(
        "check", "Reads everything and says what is damaged: 0 clean, 3 damaged, 1 failed",
        [options](Context& context) { return Check(context, *options); });
    verb.add_option("WHAT", options->what,
                    "A track, a data folder that no server uses, or an export file. Default: all "
                    "tracks of the server");
    verb.add_option("--storaged", options->program,
                    "For folders: the server's program. Default: brantel-storaged beside this one, "
                    "or in PATH")
        ->type_name("PROGRAM");
    VerbList::AddExample(verb, "brantel check", "every chunk of every track");
    VerbList::AddExample(verb, "brantel check backup.brantel", "an export file");
}

}  // namespace Brantel::Tool
