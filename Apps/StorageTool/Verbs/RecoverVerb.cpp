#include "Verbs/RecoverVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Export/DataFile.h"
#include "Export/ExportSalvage.h"
#include "Export/ExportWriter.h"
#include "Progress.h"
#include "StorageProgram.h"
#include "VerbList.h"

#include <libProtocolX/DataChunk.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace Brantel::Tool {

namespace {

using ProtocolX::DataChunk;

struct RecoverOptions {
    std::string source;
    std::string target;
    std::string program;
};

// What the new file says of the track when the old one can't tell any more.
ExportFormat::Header HeaderOf(const std::string& source) {
    try {
        return ExportReader(DataFile::OpenToRead(source)).Header();
    } catch (const std::runtime_error&) {
        ExportFormat::Header header;
        header.capacity = static_cast<std::int64_t>(std::filesystem::file_size(source));
        return header;
    }
}

// What is printed: words, or objects.
class Printer {
  public:
    Printer(Context& context, const RecoverOptions& options) : context(context), options(options) {}

    void Finding(const std::string& problem) {
        if (context.Style().json) {
            JsonObject line;
            line.Add("where", std::string_view(options.source));
            line.Add("problem", std::string_view(problem));
            context.Out().Line(line.Print());
        } else {
            context.Out().Line(problem);
        }
    }
    void Conclude(const ExportSalvage::Sums& sums) {
        if (context.Style().json) {
            JsonObject line;
            line.Add("recovered", std::string_view(options.source));
            line.Add("file", std::string_view(options.target));
            line.Add("chunks", sums.chunks).Add("findings", sums.damages);
            context.Out().Line(line.Print());
            return;
        }
        context.Out().Line(
            options.source + ": " + std::to_string(sums.chunks) + " chunks saved to " +
            options.target + ": " +
            (sums.damages == 0 ? "all was whole" : std::to_string(sums.damages) + " findings"));
    }

  private:
    Context& context;
    const RecoverOptions& options;
};

int RecoverFile(Context& context, const RecoverOptions& options) {
    Printer printer(context, options);
    std::optional<ExportWriter> writer;
    Progress progress(context, "Recovering", Progress::Unit::Bytes,
                      static_cast<std::int64_t>(DataFile::OpenToRead(options.source).Size()));
    const auto open = [&]() -> ExportWriter& {
        return writer ? *writer : writer.emplace(options.target, HeaderOf(options.source));
    };
    const ExportSalvage::Sums sums = ExportSalvage::Run(
        options.source,
        {[&](const DataChunk& chunk) {
             const std::string reason = open().Append(chunk);
             if (!reason.empty()) {
                 throw std::runtime_error(options.target + ": " + reason);
             }
             if (context.Ends().Requested()) {
                 std::filesystem::remove(options.target);
                 throw Interrupted("Interrupted after " + std::to_string(writer->Count()) +
                                   " chunks; nothing is left of " + options.target);
             }
         },
         [&](const std::string& problem) { printer.Finding(problem); },
         [&](std::uint64_t place) { progress.Update(static_cast<std::int64_t>(place)); }});
    open().Finish();
    if (!sums.hasHeader) {
        printer.Finding(options.target +
                        ": the track's number and properties are lost; it is track 0 here");
    }
    printer.Conclude(sums);
    return sums.damages == 0 ? ExitCodes::done : ExitCodes::lossy;
}

int Recover(Context& context, const RecoverOptions& options) {
    if (std::filesystem::is_directory(options.source)) {
        return StorageProgram(context, options.program)
            .RunForFolder("recover", options.source, {options.target});
    }
    return RecoverFile(context, options);
}

}  // namespace

void DeclareRecover(VerbList& verbs) {
    const auto options = std::make_shared<RecoverOptions>();
    CLI::App& verb = verbs.Add("recover", "Copies what is whole of a damaged export file or folder",
                               [options](Context& context) { return Recover(context, *options); });
    verb.add_option("FROM", options->source,
                    "An export file, or a data folder that no server uses; it is not changed")
        ->required();
    verb.add_option("OUT", options->target, "The new file or folder; must not exist yet")
        ->required();
    verb.add_option("--storaged", options->program,
                    "For folders: the server's program. Default: brantel-storaged beside this one, "
                    "or in PATH")
        ->type_name("PROGRAM");
    VerbList::AddExample(verb, "brantel recover damaged.brantel whole.brantel",
                         "the whole chunks of a file");
}

}  // namespace Brantel::Tool
