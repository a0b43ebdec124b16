#include "Verbs/PlayVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "Playing/PlayOptions.h"
#include "Playing/Playback.h"
#include "SizeText.h"
#include "VerbList.h"
#include "Verbs/Arguments.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace Brantel::Tool {

namespace {

int Play(Context& context, const PlayOptions& options) {
    if (options.preview && (!options.folder.empty() || options.format != "raw")) {
        throw Misuse("--preview shows pictures: it goes with neither -o nor --format");
    }
    if (options.overwrite && options.folder.empty()) {
        throw Misuse("-f overwrites files: it goes with -o");
    }
    if (options.preview && context.Style().json) {
        throw Misuse("Either --preview or --json");
    }
    Arguments::RefuseFormatBesideJson(context, options.format);
    PlayOptions chosen = options;
    if (context.Style().json) {
        chosen.format = "json";
    }
    Playback playback(context, chosen);
    playback.Run();
    context.Note(
        "Track " + std::to_string(options.track) + ": " + std::to_string(playback.Chunks()) +
        " chunks, " + SizeText::Print(playback.Bytes()) +
        (playback.LeftOut() == 0 ? "" : "; " + std::to_string(playback.LeftOut()) + " left out"));
    return playback.LeftOut() == 0 ? ExitCodes::done : ExitCodes::lossy;
}

void DeclareOptions(CLI::App& verb, PlayOptions& options) {
    Arguments::AddTrack(verb, options.track);
    verb.add_option("RANGE", options.range,
                    "Which part: A..B, A.., ..B, A+DURATION or [A_B). Default: all of it");
    Arguments::AddChunkFormat(
        verb, options.format,
        "raw: the data blocks as they are; mjpeg: those that are JPEG pictures; "
        "record: chunk records; json: an object a line (-j too)");
    verb.add_option("-o,--output", options.folder,
                    "A folder, for one file each, instead of the standard output")
        ->type_name("FOLDER");
    verb.add_flag("-f,--force", options.overwrite, "Overwrite files of the folder");
    Arguments::AddKeys(verb, options.keys);
    verb.add_flag("--reverse", options.reverse, "The last chunk first");
    verb.add_flag("--realtime", options.realtime, "As fast as it was recorded");
    verb.add_flag("--preview", options.preview, "Show the pictures in the terminal, in real time");
}

}  // namespace

void DeclarePlay(VerbList& verbs) {
    const auto options = std::make_shared<PlayOptions>();
    CLI::App& verb = verbs.Add("play", "Writes the data of a track's chunks back out",
                               [options](Context& context) { return Play(context, *options); });
    DeclareOptions(verb, *options);
    VerbList::AddExample(verb, "brantel play 7 -90s.. > last.mjpeg", "the last 90 seconds");
    VerbList::AddExample(verb, "brantel play 7 --realtime | ffplay -f mjpeg -",
                         "watch a recording");
    VerbList::AddExample(verb, "brantel play 7 start+10s -o pictures",
                         "the first ten seconds, one file for each picture");
}

}  // namespace Brantel::Tool
